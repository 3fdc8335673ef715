// Which lines give way to later ones, and that it shows in no file.
#include "persist/file/waiting_lines.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "tests/persist/file/property_file_samples.h"
#include "tests/support/allocations.h"
#include "tests/support/memory_file_system.h"

namespace valmere::test {
namespace {

constexpr platform::WidePathView kLinesFile = u"/Store/Properties.ini";
constexpr platform::WidePathView kLinesFileAgain = u"\\Store\\Properties.ini";

class WaitingLinesTest : public ::testing::Test {
 protected:
  void Override(std::string_view left_side, std::string_view value,
                platform::WidePathView path = kLinesFile) {
    lines_.Add(MakeWriteRequest(left_side, value, path));
  }
  void Change(std::string_view left_side, std::string_view value,
              platform::WidePathView path = kLinesFile) {
    lines_.AddChange(MakeWriteRequest(left_side, value, path));
  }
  // Takes all that wait.
  std::vector<std::string> Taken() {
    std::vector<std::string> taken;
    while (const auto line = lines_.TakeFirst())
      taken.push_back(line->request.line);
    return taken;
  }

  WaitingLines lines_;
};

using Texts = std::vector<std::string>;

TEST_F(WaitingLinesTest, AChangeTakesThePlaceOfTheOneBeforeIt) {
  Change("a|n", "1");
  Change("b|n", "1");
  Change("a|n", "2");
  Change("b|n", "2");
  Change("a|n", "3");
  EXPECT_EQ(Taken(), (Texts{"a|n=3", "b|n=2"}));
}

TEST_F(WaitingLinesTest, NoLineIsMovedOverThatOfAnOverride) {
  Change("a|n", "1");
  Override("b|n", "1");
  Change("a|n", "2");
  Override("b|n", "2");
  Change("a|n", "3");
  Change("a|n", "4");
  EXPECT_EQ(Taken(), (Texts{"a|n=1", "b|n=1", "a|n=2", "b|n=2", "a|n=4"}));
}

TEST_F(WaitingLinesTest, NoChangeTakesThePlaceOfAnOverridesLine) {
  Override("a|n", "1");
  Override("a|n", "2");
  Change("a|n", "3");
  EXPECT_EQ(Taken(), (Texts{"a|n=1", "a|n=2", "a|n=3"}));
}

TEST_F(WaitingLinesTest, NoChangeIsMovedOverOneForAnotherPath) {
  Change("a|n", "1");
  Change("a|n", "2", kLinesFileAgain);
  Change("a|n", "3");
  Change("a|n", "4");
  EXPECT_EQ(Taken(), (Texts{"a|n=1", "a|n=2", "a|n=4"}));
}

TEST_F(WaitingLinesTest, NoChangeIsMovedOverOneThatMayTouchItsLine) {
  Change("a|n", "1");
  Change("a|name", "2");
  Change("a|n", "3");
  Change("a|name", "4");
  Change("a|name", "5");
  EXPECT_EQ(Taken(), (Texts{"a|n=1", "a|name=2", "a|n=3", "a|name=5"}));
}

TEST_F(WaitingLinesTest, ALineThatWasTakenIsNotChangedAnyMore) {
  Change("a|n", "1");
  Change("b|n", "1");
  auto taken = lines_.TakeFirst();
  ASSERT_TRUE(taken);
  Change("a|n", "2");
  Change("b|n", "2");
  EXPECT_EQ(taken->request.line, "a|n=1");
  EXPECT_EQ(Taken(), (Texts{"b|n=2", "a|n=2"}));
}

TEST_F(WaitingLinesTest, ALineThatIsPutBackIsTheFirstAndStaysAsItIs) {
  Change("a|n", "1");
  Change("b|n", "1");
  auto taken = lines_.TakeFirst();
  Change("a|n", "2");
  lines_.PutBack(*std::move(taken));
  Change("a|n", "3");
  EXPECT_EQ(Taken(), (Texts{"a|n=1", "b|n=1", "a|n=3"}));
}

TEST_F(WaitingLinesTest, NothingIsLeftAfterAClear) {
  Change("a|n", "1");
  Override("b|n", "1");
  Change("a|n", "2");
  lines_.Clear();
  EXPECT_FALSE(lines_.TakeFirst());
  Change("a|n", "3");
  EXPECT_EQ(Taken(), Texts{"a|n=3"});
}

TEST_F(WaitingLinesTest, ChangesWithoutEndOfOnePropertyTakeTheMemoryOfOne) {
  Change("99A61D40-20CE-41EA-A579-EB92C6ED94C6:CD31503F|General:Switch", "False");
  const std::size_t before = BytesInUse();
  for (int i = 0; i < 480'000; ++i)
    Change("99A61D40-20CE-41EA-A579-EB92C6ED94C6:CD31503F|General:Switch", "True");
  EXPECT_LT(BytesInUse(), before + 4096);
}

TEST_F(WaitingLinesTest, WithoutMemoryALineIsNotQueuedOrIsQueuedLikeAnyOther) {
  for (int i = 0; i < 7; ++i)
    Change("k" + std::to_string(i) + "|n", "0");
  std::uint32_t refusals = 0;
  FailEachAllocation(
      [&] {
        for (int i = 0; i < 40; ++i)
          Change("key of more than a few letters " + std::to_string(i % 20) + "|n", "v");
      },
      [&] {
        ++refusals;
        EXPECT_EQ(lines_.TakeFirst()->request.line, "k0|n=0");
        WaitingLine line;
        line.request = MakeWriteRequest("k0|n", "0", kLinesFile);
        lines_.PutBack(std::move(line));
      });
  EXPECT_GT(refusals, 20U);
  Change("k1|n", "1");
  Change("key of more than a few letters 3|n", "w");
  const Texts taken = Taken();
  EXPECT_EQ(taken[0], "k0|n=0");
  EXPECT_EQ(taken[1], "k1|n=1");
  std::size_t last = 0;
  for (std::size_t i = 0; i < taken.size(); ++i)
    if (taken[i].starts_with("key of more than a few letters 3|n")) last = i;
  EXPECT_EQ(taken[last], "key of more than a few letters 3|n=w");
}

// What a queue that takes one line after the other makes of the files, and beside it what this one
// makes of them. Both are looked at whenever all that waits has been written.
class TwoDisks {
 public:
  explicit TwoDisks(std::uint32_t seed) : random_(seed) {}

  // A step at random; false when the disks differ.
  bool Step() {
    switch (random_() % 24) {
      case 0:
        Queue(AnyRequest(), false);
        return true;
      case 1:
        StoreAll();
        return true;
      case 2:
        path_ = Any(kPaths);
        return true;
      case 3:
        return WriteAll();
      case 4:
      case 5:
        WriteFirst();
        return true;
      default:
        Queue(AnyRequest(), true);
        return true;
    }
  }
  bool WriteAll() {
    while (WriteFirst()) {
    }
    for (const auto path : kPaths)
      if (merged_.Get(path) != in_turn_.Get(path)) return false;
    return true;
  }
  int lines_spared() const { return queued_ - written_; }

 private:
  // Keys that begin with one another, names that do, and one key under two names.
  static constexpr std::array<std::string_view, 7> kLeftSides = {"g:p|Group:Number",
                                                                 "g:p|Group:Numbers",
                                                                 "g:pp|Group:Number",
                                                                 "g:q|Group",
                                                                 "g:q|Group:x=y",
                                                                 "h:p|:",
                                                                 "h|"};
  static constexpr std::array<platform::WidePathView, 3> kPaths = {kLinesFile, kLinesFileAgain,
                                                                   u"/Other"};

  template <class Container>
  typename Container::value_type Any(const Container& container) {
    return container[random_() % container.size()];
  }
  WriteRequest AnyRequest() {
    return MakeWriteRequest(Any(kLeftSides), std::to_string(random_() % 1000), path_);
  }
  void StoreAll() {
    for (const std::string_view left_side : kLeftSides)
      Queue(MakeWriteRequest(left_side, std::to_string(random_() % 1000), path_), true);
  }
  void Queue(const WriteRequest& request, bool is_change) {
    ++queued_;
    EXPECT_EQ(RewriteLine(in_turn_, request), RewriteResult::kWritten);
    if (is_change) {
      lines_.AddChange(request);
    } else {
      lines_.Add(request);
    }
  }
  bool WriteFirst() {
    const auto line = lines_.TakeFirst();
    if (!line) return false;
    ++written_;
    EXPECT_EQ(RewriteLine(merged_, line->request), RewriteResult::kWritten);
    return true;
  }

  std::mt19937 random_;
  platform::WidePathView path_ = kLinesFile;
  WaitingLines lines_;
  MemoryFileSystem in_turn_;
  MemoryFileSystem merged_;
  int queued_ = 0;
  int written_ = 0;
};

TEST(WaitingLinesOnDisk, LeaveTheFilesThatEveryLineInItsTurnWouldLeave) {
  int spared = 0;
  for (std::uint32_t seed = 0; seed < 300; ++seed) {
    TwoDisks disks(seed);
    for (int step = 0; step < 120; ++step)
      ASSERT_TRUE(disks.Step()) << "seed " << seed << ", step " << step;
    ASSERT_TRUE(disks.WriteAll()) << "seed " << seed;
    spared += disks.lines_spared();
  }
  EXPECT_GT(spared, 1000);
}

}  // namespace
}  // namespace valmere::test
