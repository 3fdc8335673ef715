#include "store/property/sorted_blocks.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <memory>
#include <random>
#include <set>
#include <vector>

#include "tests/support/allocations.h"

namespace valmere::test {
namespace {

using Blocks = SortedBlocks<int>;
using Position = Blocks::Position;

constexpr std::size_t kBlock = Blocks::kMostInBlock;

Position PlaceOf(const Blocks& blocks, int number) {
  return blocks.Find([&](int each) { return each < number; });
}

void Insert(Blocks& blocks, int number) {
  blocks.Insert(PlaceOf(blocks, number), number);
}

std::vector<int> All(const Blocks& blocks) {
  std::vector<int> all;
  for (Position place = blocks.begin(); place != blocks.end(); place = blocks.Next(place))
    all.push_back(blocks[place]);
  return all;
}

TEST(SortedBlocks, AreEmptyAtFirst) {
  const Blocks blocks;
  EXPECT_TRUE(blocks.empty());
  EXPECT_EQ(0u, blocks.size());
  EXPECT_EQ(blocks.begin(), blocks.end());
  EXPECT_EQ(blocks.end(), PlaceOf(blocks, 1));
}

TEST(SortedBlocks, HoldWhatASetWouldThroughManyChanges) {
  std::mt19937 random(1);
  for (const int range : {100, 5'000}) {
    Blocks blocks;
    std::set<int> expected;
    for (int i = 0; i < 20'000; ++i) {
      const int number = static_cast<int>(random() % static_cast<unsigned>(range));
      Position place = PlaceOf(blocks, number);
      const bool present = place != blocks.end() && blocks[place] == number;
      ASSERT_EQ(expected.contains(number), present);
      // Grows for a while, then shrinks.
      if (!present && random() % 10 < (i < 10'000 ? 9 : 1)) {
        blocks.Insert(place, number);
        expected.insert(number);
      } else if (present && random() % 10 < (i < 10'000 ? 1 : 9)) {
        ASSERT_EQ(number, blocks.Take(place));
        const auto next = expected.erase(expected.find(number));
        ASSERT_EQ(next == expected.end(), place == blocks.end());
        if (next != expected.end()) {
          ASSERT_EQ(*next, blocks[place]);
        }
      }
      ASSERT_EQ(expected.size(), blocks.size());
    }
    EXPECT_EQ(std::vector<int>(expected.begin(), expected.end()), All(blocks));
  }
}

TEST(SortedBlocks, AreFullWhenTheirEntriesCameInAscendingOrder) {
  constexpr int kCount = 10 * static_cast<int>(kBlock);
  const std::size_t before = BytesInUse();
  Blocks at_the_end, before_others;
  Insert(before_others, kCount);
  for (int i = 0; i < kCount; ++i) {
    Insert(at_the_end, i);
    Insert(before_others, i);
  }
  // Two more: the one that holds the last entry, and what the lists of blocks take.
  constexpr std::size_t kBlockBytes = kBlock * sizeof(int) + sizeof(std::size_t);
  EXPECT_GT(before + (2 * 10 + 3) * kBlockBytes, BytesInUse());
}

TEST(SortedBlocks, GiveMemoryBackAsTheyShrink) {
  const std::size_t before = BytesInUse();
  Blocks blocks;
  for (int i = 0; i < 100 * static_cast<int>(kBlock); ++i)
    Insert(blocks, i);
  const std::size_t full = BytesInUse() - before;
  // One of eight stays.
  for (int i = 0; i < 100 * static_cast<int>(kBlock); ++i) {
    Position place = PlaceOf(blocks, i);
    if (i % 8 != 0) {
      blocks.Take(place);
    }
  }
  EXPECT_GT(before + full / 2, BytesInUse());
  for (Position place = blocks.begin(); place != blocks.end();)
    blocks.Take(place);
  EXPECT_TRUE(blocks.empty());
  EXPECT_EQ(before, BytesInUse());
}

TEST(SortedBlocks, AreAsTheyWereWhenThereIsNoMemoryForOneMore) {
  Blocks blocks;
  std::vector<int> expected;
  for (int i = 0; i < 4 * static_cast<int>(kBlock); i += 2) {
    expected.push_back(i);
    FailEachAllocation([&] { Insert(blocks, i); },
                       [&] { EXPECT_EQ(expected.size() - 1, blocks.size()); });
  }
  const int middle = static_cast<int>(kBlock) + 1;
  expected.insert(std::lower_bound(expected.begin(), expected.end(), middle), middle);
  FailEachAllocation([&] { Insert(blocks, middle); }, [] {});
  EXPECT_EQ(expected, All(blocks));
}

TEST(SortedBlocks, LetGoOfWhatIsTakenOut) {
  SortedBlocks<std::shared_ptr<int>> blocks;
  const auto held = std::make_shared<int>(1);
  for (std::size_t i = 0; i < 3 * kBlock; ++i)
    blocks.Insert(blocks.begin(), held);
  for (auto place = blocks.begin(); place != blocks.end();)
    blocks.Take(place);
  EXPECT_EQ(1, held.use_count());
}

}  // namespace
}  // namespace valmere::test
