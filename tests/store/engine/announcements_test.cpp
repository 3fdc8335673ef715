#include "store/engine/announcements.h"

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <string>
#include <string_view>

#include "store/property/component_property.h"
#include "store/property/string_property.h"
#include "tests/support/allocations.h"

namespace valmere::test {
namespace {

using Handles = Announcements::Handles;

const std::atomic<bool> kRunning{false};

std::shared_ptr<Property> Make(std::string_view guid) {
  return ComponentProperty::Make("", guid, "", "G", "", "C", "", nullptr);
}

TEST(Announcements, KeepsTheOrderOfEachKind) {
  Announcements announcements;
  const auto a = Make("A"), b = Make("B"), c = Make("C"), d = Make("D");
  announcements.AddVanished(c);
  announcements.AddNew(b);
  announcements.AddNew(a);
  announcements.AddVanished(d);
  const auto taken = announcements.Take(kRunning);
  EXPECT_EQ((Handles{b, a}), taken.added);
  EXPECT_EQ((Handles{c, d}), taken.vanished);
}

TEST(Announcements, GivesEverythingOnce) {
  Announcements announcements;
  announcements.AddNew(Make("A"));
  announcements.AddVanished(Make("B"));
  announcements.Take(kRunning);
  const auto taken = announcements.Take(kRunning);
  EXPECT_TRUE(taken.added.empty());
  EXPECT_TRUE(taken.vanished.empty());
}

TEST(Announcements, LetWhatCameAndWentGoInOnePass) {
  Announcements announcements;
  const auto property = Make("A");
  announcements.AddNew(property);
  announcements.AddVanished(property);
  const auto taken = announcements.Take(kRunning);
  EXPECT_EQ((Handles{property}), taken.added);
  EXPECT_EQ((Handles{property}), taken.vanished);
}

TEST(Announcements, LetWhatWentAndCameBackWaitForTheNextPass) {
  Announcements announcements;
  const auto old = Make("A"), back = Make("A"), other = Make("B");
  announcements.AddNew(old);
  announcements.AddVanished(old);
  announcements.AddNew(back);
  announcements.AddNew(other);
  const auto taken = announcements.Take(kRunning);
  EXPECT_EQ((Handles{old, other}), taken.added);
  EXPECT_EQ((Handles{old}), taken.vanished);
  const auto next = announcements.Take(kRunning);
  EXPECT_EQ((Handles{back}), next.added);
  EXPECT_TRUE(next.vanished.empty());
}

TEST(Announcements, LetWhatCameBackAndWentAgainGoWithTheRest) {
  Announcements announcements;
  const auto old = Make("A"), back = Make("A");
  announcements.AddVanished(old);
  announcements.AddNew(back);
  announcements.AddVanished(back);
  const auto taken = announcements.Take(kRunning);
  EXPECT_EQ((Handles{back}), taken.added);
  EXPECT_EQ((Handles{old, back}), taken.vanished);
  EXPECT_TRUE(announcements.Take(kRunning).added.empty());
}

TEST(Announcements, LoseNothingWhenThereIsNoMemoryToTakeThem) {
  Announcements announcements;
  const auto a = Make("A"), b = Make("B"), other = Make("C");
  const auto a_back = Make("A"), b_back = Make("B");
  for (const auto& property : {a, b})
    announcements.AddVanished(property);
  for (const auto& property : {a_back, other, b_back})
    announcements.AddNew(property);
  Announcements::Taken taken;
  FailEachAllocation([&] { taken = announcements.Take(kRunning); },
                     [&] { EXPECT_TRUE(taken.added.empty()); });
  EXPECT_EQ((Handles{other}), taken.added);
  EXPECT_EQ((Handles{a, b}), taken.vanished);
  EXPECT_EQ((Handles{a_back, b_back}), announcements.Take(kRunning).added);
}

TEST(Announcements, ThatWaitComeBeforeTheNewOnesOfTheNextPass) {
  Announcements announcements;
  const auto old = Make("A"), back = Make("A"), next = Make("B");
  announcements.AddVanished(old);
  announcements.AddNew(back);
  EXPECT_TRUE(announcements.Take(kRunning).added.empty());
  announcements.AddNew(next);
  Announcements::Taken taken;
  FailEachAllocation([&] { taken = announcements.Take(kRunning); },
                     [&] { EXPECT_TRUE(taken.added.empty()); });
  EXPECT_EQ((Handles{back, next}), taken.added);
}

TEST(Announcements, AreDroppedAndCountedBeyondTheMost) {
  Announcements announcements;
  const auto first = Make("A"), other = Make("B");
  announcements.AddNew(first);
  for (std::size_t i = 1; i < Announcements::kMostWaiting; ++i)
    announcements.AddNew(other);
  announcements.AddNew(other);
  announcements.AddVanished(first);
  for (std::size_t i = 0; i < Announcements::kMostWaiting + 1; ++i)
    announcements.AddVanished(other);
  const long handles = other.use_count();
  auto taken = announcements.Take(kRunning);
  EXPECT_EQ(handles, other.use_count());
  EXPECT_EQ(Announcements::kMostWaiting, taken.added.size());
  EXPECT_EQ(Announcements::kMostWaiting, taken.vanished.size());
  EXPECT_EQ(first, taken.added[0]);
  EXPECT_EQ(first, taken.vanished[0]);
  EXPECT_EQ(1u, taken.lost_added);
  EXPECT_EQ(2u, taken.lost_vanished);
  announcements.AddNew(other);
  taken = announcements.Take(kRunning);
  EXPECT_EQ(1u, taken.added.size());
  EXPECT_EQ(0u, taken.lost_added + taken.lost_vanished);
}

// A client that publishes and withdraws one property for as long as it can.
TEST(Announcements, OfOnePropertyOverAndOverAreTakenInNoTime) {
  Announcements announcements;
  const platform::Ticks start = platform::MonotonicNow();
  for (std::size_t i = 0; i < 20'000; ++i) {
    const auto property = Make("A");
    announcements.AddNew(property);
    announcements.AddVanished(property);
  }
  const platform::Ticks made = platform::MonotonicNow();
  EXPECT_EQ(20'000u, announcements.Take(kRunning).added.size());
  // What is busy with something else makes them slowly as well.
  EXPECT_GT(500 * platform::kTicksPerMillisecond + (made - start), platform::MonotonicNow() - made);
}

TEST(Announcements, AreNotTakenOnceItIsOver) {
  Announcements announcements;
  const std::atomic<bool> over{true};
  announcements.AddNew(Make("A"));
  announcements.AddVanished(Make("B"));
  const auto taken = announcements.Take(over);
  EXPECT_TRUE(taken.added.empty());
  EXPECT_TRUE(taken.vanished.empty());
}

TEST(Announcements, NeverLetAPropertyOfTheServiceWait) {
  Announcements announcements;
  const auto own = StringProperty::Make("", "G:A", "", "C", "");
  announcements.AddVanished(Make("A"));
  announcements.AddNew(own);
  EXPECT_EQ((Handles{own}), announcements.Take(kRunning).added);
}

}  // namespace
}  // namespace valmere::test
