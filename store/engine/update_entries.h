// The entries of one publishing period, as the text that subscribers get.
#pragma once

#include <atomic>
#include <cstddef>
#include <functional>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "net/shared_frame.h"
#include "protocol/wire/entry_frame.h"
#include "protocol/wire/property_records.h"
#include "store/engine/reused_frame.h"

namespace valmere {

// Purpose: collects entries, rendered once, and gives them out whole or by key, as frames that
// connections may keep.
// Owner: the change publisher.
// Threads: the publishing thread alone; `stop` may go up on any other.
// Errors: std::bad_alloc; what was collected before stays as it is.
class UpdateEntries {
 public:
  using Keys = std::set<std::string, std::less<>>;
  using IsUnwanted = std::function<bool()>;

  // The frame of a period becomes no longer than this, four times what a receiver takes in one. It
  // keeps a period that never ends from using up all memory.
  static constexpr std::size_t kMostBytes = std::size_t{16} << 20;
  // So much more is reserved for entries that say that a property has gone: a subscriber that
  // misses one never learns of it, and a property goes only once.
  static constexpr std::size_t kReservedBytes = std::size_t{4} << 20;

  explicit UpdateEntries(const std::atomic<bool>& stop) : stop_(stop) {}

  // False when there is no room left for the entry.
  bool Append(const PropertyResponseRecord& record);
  bool empty() const { return entries_.empty(); }
  std::size_t size() const { return entries_.size(); }
  // Forgets the entries; memory beyond the ordinary is given back.
  void Clear() noexcept;

  // The frame with every entry. While a frame is held, nothing is appended before the next Clear.
  SharedFrame WholeFrame();
  // The one with the entries whose keys are in `keys`, in order; the same frame as the last call's
  // if it has the same entries. A key whose property is no longer available moves to `gone`, which
  // is empty before. Null when there is no such entry, and with all of `keys` left as they were also
  // once `is_unwanted`, which is asked now and then. std::bad_alloc leaves `keys` as they were.
  SharedFrame FrameFor(Keys& keys, Keys& gone, const IsUnwanted& is_unwanted);

 private:
  struct Entry {
    std::string key;
    std::size_t begin;  // of its text
    std::size_t end;
    bool vanished;
  };

  using Places = std::vector<std::size_t>;

  ResponseFrame& Frame();
  bool Pick(Keys& keys, Keys& gone, const IsUnwanted& is_unwanted);
  SharedFrame PickedFrame();
  bool RenderPicked();

  const std::atomic<bool>& stop_;
  std::vector<Entry> entries_;
  ReusedFrame whole_;                   // the text of the frame with all of them
  std::optional<ResponseFrame> frame_;  // writes it, from the first entry on
  Places picked_;                       // which entries the last subscriber gets
  Places rendered_;  // those of the frame in picked_frame_; empty when it has none
  ReusedFrame picked_frame_;
};

}  // namespace valmere
