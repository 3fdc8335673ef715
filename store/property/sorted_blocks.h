// Entries in an order, in blocks of a few dozen.
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <iterator>
#include <memory>
#include <utility>
#include <vector>

namespace valmere {

// Purpose: keeps entries in the order that its owner gives them. An entry costs little more than
// its own bytes, where a node of a tree costs some forty beyond them; a look-up is a binary search.
// Owner: an index, which knows the order.
// Threads: none of its own; the owner guards it.
// Errors: Insert throws std::bad_alloc and leaves everything as it was; nothing else allocates.
template <class Entry>
class SortedBlocks {
 public:
  // Where an entry is, or the end. Valid until an entry is inserted or removed.
  struct Position {
    std::size_t block;
    std::size_t at;

    bool operator==(const Position&) const = default;
  };

  static constexpr std::size_t kMostInBlock = 64;

  bool empty() const { return blocks_.empty(); }
  std::size_t size() const { return size_; }
  Position begin() const { return {0, 0}; }
  Position end() const { return {blocks_.size(), 0}; }
  const Entry& operator[](Position place) const { return blocks_[place.block]->entries[place.at]; }
  Position Next(Position place) const {
    if (++place.at < blocks_[place.block]->size) return place;
    return {place.block + 1, 0};
  }

  // The first entry for which `is_before` is false: it is true for all that come before that, and
  // false from there on.
  template <class IsBefore>
  Position Find(IsBefore is_before) const {
    const auto block = std::partition_point(blocks_.begin(), blocks_.end(), [&](const auto& each) {
      return is_before(each->entries[each->size - 1]);
    });
    if (block == blocks_.end()) return end();
    const auto first = (*block)->entries.begin();
    const auto last = first + static_cast<std::ptrdiff_t>((*block)->size);
    return {static_cast<std::size_t>(block - blocks_.begin()),
            static_cast<std::size_t>(std::partition_point(first, last, is_before) - first)};
  }

  // Puts the entry before the one at `place`.
  void Insert(Position place, Entry entry) {
    place = MakeRoom(place);
    Block& block = *blocks_[place.block];
    const auto from = block.entries.begin() + static_cast<std::ptrdiff_t>(place.at);
    const auto end = block.entries.begin() + static_cast<std::ptrdiff_t>(block.size);
    std::move_backward(from, end, end + 1);
    *from = std::move(entry);
    ++block.size;
    ++size_;
  }

  // Takes the entry at `place` out; `place` is that of the next one then.
  Entry Take(Position& place) noexcept {
    Block& block = *blocks_[place.block];
    const auto from = block.entries.begin() + static_cast<std::ptrdiff_t>(place.at);
    Entry taken = std::move(*from);
    std::move(from + 1, block.entries.begin() + static_cast<std::ptrdiff_t>(block.size), from);
    block.entries[--block.size] = Entry();
    --size_;
    if (block.size == 0)
      Erase(place.block);
    else
      Shrink(place);
    return taken;
  }

 private:
  struct Block {
    std::size_t size = 0;
    std::array<Entry, kMostInBlock> entries{};
  };

  // A full block is split here rather than in its middle: behind entries that come in order.
  static constexpr std::size_t kNearEnd = kMostInBlock - kMostInBlock / 8;

  bool IsFull(std::size_t block) const { return blocks_[block]->size == kMostInBlock; }
  void AddBlock(std::size_t at) {
    blocks_.insert(blocks_.begin() + static_cast<std::ptrdiff_t>(at), std::make_unique<Block>());
  }

  // Where the entry for `place` can stand. Entries that come in ascending order fill their blocks.
  Position MakeRoom(Position place) {
    if (place.at == 0 && place.block > 0 && !IsFull(place.block - 1))
      return {place.block - 1, blocks_[place.block - 1]->size};
    if (place.block < blocks_.size() && !IsFull(place.block)) return place;
    if (place.at == 0) {
      AddBlock(place.block);
      return place;
    }
    AddBlock(place.block + 1);
    const std::size_t kept = place.at < kNearEnd ? kMostInBlock / 2 : place.at;
    MoveTail(*blocks_[place.block], kept, *blocks_[place.block + 1]);
    if (place.at <= kept) return place;
    return {place.block + 1, place.at - kept};
  }

  // Behind the entries of the other.
  static void MoveTail(Block& from, std::size_t at, Block& to) noexcept {
    for (std::size_t i = at; i < from.size; ++i)
      to.entries[to.size++] = std::exchange(from.entries[i], Entry());
    from.size = at;
  }

  void Erase(std::size_t block) noexcept {
    blocks_.erase(blocks_.begin() + static_cast<std::ptrdiff_t>(block));
    if (blocks_.empty()) Blocks().swap(blocks_);
  }

  // Unites the block with a neighbour where both are half a block together, and moves `place` on
  // from the end of its block.
  void Shrink(Position& place) noexcept {
    if (MergeWithNext(place.block)) return;
    const std::size_t before = place.block > 0 ? blocks_[place.block - 1]->size : 0;
    if (place.block > 0 && MergeWithNext(place.block - 1))
      place = {place.block - 1, before + place.at};
    if (place.at == blocks_[place.block]->size) place = {place.block + 1, 0};
  }
  bool MergeWithNext(std::size_t block) noexcept {
    if (block + 1 >= blocks_.size()) return false;
    if (blocks_[block]->size + blocks_[block + 1]->size > kMostInBlock / 2) return false;
    MoveTail(*blocks_[block + 1], 0, *blocks_[block]);
    Erase(block + 1);
    return true;
  }

  using Blocks = std::vector<std::unique_ptr<Block>>;
  Blocks blocks_;  // none is empty
  std::size_t size_ = 0;
};

}  // namespace valmere
