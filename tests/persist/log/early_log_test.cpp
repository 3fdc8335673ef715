#include "persist/log/early_log.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "tests/persist/settings/persistence_fixture.h"

namespace valmere::test {
namespace {

TEST(EarlyLog, KeepsMessagesUntilThereIsALog) {
  EarlyLog early;
  early.Log("one");
  early.Log("two");
  const auto log = std::make_shared<KeptLog>();
  early.Attach(log);
  early.Log("three");
  EXPECT_EQ(log->lines(), (std::vector<std::string>{"one", "two", "three"}));
}

TEST(EarlyLog, GivesEachMessageOnce) {
  EarlyLog early;
  early.Log("one");
  early.Attach(std::make_shared<KeptLog>());
  const auto log = std::make_shared<KeptLog>();
  early.Attach(log);
  EXPECT_EQ(log->lines(), std::vector<std::string>());
}

TEST(EarlyLog, OutlivesItsLog) {
  EarlyLog early;
  early.Attach(std::make_shared<KeptLog>());
  early.Log("too late");
}

}  // namespace
}  // namespace valmere::test
