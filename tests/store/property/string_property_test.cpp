#include "store/property/string_property.h"

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <string>
#include <vector>

#include "tests/store/property/change_counter.h"
#include "tests/support/test_thread.h"

namespace valmere::test {
namespace {

std::shared_ptr<StringProperty> MakeText(std::string_view value) {
  return StringProperty::Make(value, "GUID", "Name", "GROUP", "Group");
}

// Shows the value lock to a test.
class WithOpenLock : public StringProperty {
 public:
  WithOpenLock() : StringProperty(MakeToken(), "text", PropertyIdentity("", "", "", "")) {}
  Lock& lock() { return value_lock(); }
};

TEST(StringProperty, IsItsOwnTextForm) {
  const std::string bytes(" a\0b\xff\n", 6);
  const auto text = MakeText(bytes);
  EXPECT_EQ(text->ToString(), bytes);
  EXPECT_EQ(text->GetValueString(), bytes);
  EXPECT_EQ(text->GetValue(), bytes);
  EXPECT_EQ(text->Snapshot().view(), bytes);
}

TEST(StringProperty, CanBeEmpty) {
  const auto text = MakeText("");
  EXPECT_EQ(text->ToString(), "");
  text->SetValue("a");
  text->SetValue("");
  EXPECT_EQ(text->GetValue(), "");
}

TEST(StringProperty, TakesEveryTextUnchanged) {
  const auto text = MakeText("");
  text->SetFromString(" FALSE ");
  EXPECT_EQ(text->ToString(), " FALSE ");
}

TEST(StringProperty, AnnouncesChangesOnly) {
  const auto text = MakeText("abc");
  const ChangeCounter changes(*text);
  text->SetValue("abc");
  text->SetFromString("abc");
  EXPECT_EQ(changes.count(), 0);
  text->SetValue("abd");
  EXPECT_EQ(changes.count(), 1);
  text->SetFromString("abd ");
  EXPECT_EQ(changes.count(), 2);
  text->SetValue(std::string_view("abd\0", 4));
  EXPECT_EQ(changes.count(), 3);
}

TEST(StringProperty, ChangesSilently) {
  const auto text = MakeText("abc");
  const ChangeCounter changes(*text);
  text->SetFromStringSilently("def");
  EXPECT_EQ(text->ToString(), "def");
  EXPECT_EQ(changes.count(), 0);
}

TEST(StringProperty, LetsAListenerReadAndSetIt) {
  const auto text = MakeText("a");
  text->AddListener([&](const std::shared_ptr<Property>& self) {
    if (self->ToString() == "b") text->SetValue(text->GetValue() + "c");
  });
  text->SetValue("b");
  EXPECT_EQ(text->ToString(), "bc");
}

TEST(StringProperty, HoldsNoLockWhileItAnnounces) {
  const auto text = MakeText("a");
  std::string seen_elsewhere;
  text->AddListener([&](const std::shared_ptr<Property>&) {
    TestThread([&] { seen_elsewhere = text->GetValue(); }).Join();
  });
  text->SetValue("b");
  EXPECT_EQ(seen_elsewhere, "b");
}

TEST(StringProperty, TakesTheValueLockForStoresAndGetValueOnly) {
  const auto text = std::make_shared<WithOpenLock>();
  std::atomic<bool> stored{false};
  std::atomic<bool> got{false};
  std::unique_ptr<TestThread> storing;
  std::unique_ptr<TestThread> getting;
  {
    const ScopedLock hold(text->lock());
    std::string seen;
    bool same_text_set = false;
    TestThread([&] { seen = text->ToString(); }).Join();
    TestThread([&] {
      text->SetValue("text");
      same_text_set = true;
    }).Join();
    EXPECT_EQ(seen, "text");
    EXPECT_TRUE(same_text_set);

    storing = std::make_unique<TestThread>([&] {
      text->SetFromStringSilently("new");
      stored = true;
    });
    getting = std::make_unique<TestThread>([&] {
      text->GetValue();
      got = true;
    });
    // Room for the two threads to go wrong in.
    platform::Semaphore never;
    never.WaitUntil(platform::MonotonicNow() + 20 * platform::kTicksPerMillisecond);
    EXPECT_FALSE(stored);
    EXPECT_FALSE(got);
  }
  storing->Join();
  getting->Join();
  EXPECT_EQ(text->ToString(), "new");
}

TEST(StringProperty, GivesWholeTextsWhileOthersSetIt) {
  constexpr int kSets = 1'000;
  const auto text = MakeText("a");
  std::atomic<int> setters{2};
  std::atomic<int> torn{0};
  const auto check = [&](const std::string& seen) {
    if (seen.empty() || seen.find_first_not_of(seen.front()) != std::string::npos) ++torn;
  };
  {
    std::vector<TestThread> threads;
    for (const char fill : {'b', 'c'}) {
      threads.emplace_back([&, fill] {
        for (int i = 0; i < kSets; ++i) {
          const std::string value(static_cast<std::size_t>(i % 100 + 1), fill);
          if (i % 2 == 0)
            text->SetValue(value);
          else
            text->SetFromStringSilently(value);
        }
        --setters;
      });
    }
    threads.emplace_back([&] {
      while (setters > 0)
        check(text->ToString());
    });
    threads.emplace_back([&] {
      while (setters > 0)
        check(text->GetValue());
    });
  }
  EXPECT_EQ(torn, 0);
}

}  // namespace
}  // namespace valmere::test
