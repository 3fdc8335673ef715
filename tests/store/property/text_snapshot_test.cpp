#include "store/property/text_snapshot.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <string>
#include <utility>
#include <vector>

#include "tests/support/test_thread.h"

namespace valmere::test {
namespace {

TEST(SharedText, HoldsACopyOfAnyBytes) {
  std::string given("a\0\xff", 3);
  const SharedText text(given);
  given = "xyz";
  EXPECT_EQ(text.view(), std::string_view("a\0\xff", 3));
}

TEST(SharedText, CanBeEmpty) {
  EXPECT_EQ(SharedText().view(), "");
  EXPECT_EQ(SharedText("").view(), "");
}

TEST(SharedText, SharesOneBlockAmongCopies) {
  SharedText first("text");
  const SharedText second(first);
  EXPECT_EQ(first.view().data(), second.view().data());
  first = SharedText("other");
  EXPECT_EQ(first.view(), "other");
  EXPECT_EQ(second.view(), "text");
}

TEST(SharedText, MovesWithoutCopying) {
  SharedText first("text");
  const char* bytes = first.view().data();
  const SharedText second(std::move(first));
  EXPECT_EQ(second.view().data(), bytes);
}

TEST(SharedText, SurvivesAssignmentToItself) {
  SharedText text("text");
  const SharedText& same = text;
  text = same;
  EXPECT_EQ(text.view(), "text");
}

TEST(TextSnapshot, KeepsALoadedTextBeyondTheNextStore) {
  TextSnapshot cell(SharedText("old"));
  const SharedText old = cell.Load();
  cell.Store(SharedText("new"));
  EXPECT_EQ(old.view(), "old");
  EXPECT_EQ(cell.Load().view(), "new");
}

TEST(TextSnapshot, GivesReadersWholeTextsWhileOthersStore) {
  constexpr int kStores = 2'000;
  TextSnapshot cell(SharedText(std::string(100, 'a')));
  std::atomic<int> writers{2};
  std::atomic<int> torn{0};
  {
    std::vector<TestThread> threads;
    for (const char fill : {'b', 'c'}) {
      threads.emplace_back([&, fill] {
        for (int i = 0; i < kStores; ++i)
          cell.Store(SharedText(std::string(static_cast<std::size_t>(i % 200 + 1), fill)));
        --writers;
      });
    }
    for (int i = 0; i < 2; ++i) {
      threads.emplace_back([&] {
        while (writers > 0) {
          const SharedText text = cell.Load();
          if (text.view().find_first_not_of(text.view().front()) != std::string_view::npos) ++torn;
        }
      });
    }
  }
  EXPECT_EQ(torn, 0);
}

TEST(TextLock, SpreadsCellsOverSeveralLocks) {
  std::vector<const Lock*> seen;
  std::vector<char> cells(192 * 100);
  for (std::size_t i = 0; i < cells.size(); i += 192) {
    const Lock* lock = &TextLock(&cells[i]);
    EXPECT_EQ(lock, &TextLock(&cells[i]));
    if (std::find(seen.begin(), seen.end(), lock) == seen.end()) seen.push_back(lock);
  }
  EXPECT_GT(seen.size(), 8U);
}

}  // namespace
}  // namespace valmere::test
