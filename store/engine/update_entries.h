// The entries of one publishing period, as the text that subscribers get.
#pragma once

#include <atomic>
#include <cstddef>
#include <functional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "protocol/wire/entry_frame.h"
#include "protocol/wire/property_records.h"

namespace valmere {

// Purpose: collects entries, rendered once, and gives them out whole or by key.
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

  explicit UpdateEntries(const std::atomic<bool>& stop) : stop_(stop), frame_(text_, stop) {}

  // False when there is no room left for the entry.
  bool Append(const PropertyResponseRecord& record);
  bool empty() const { return entries_.empty(); }
  std::size_t size() const { return entries_.size(); }
  // Forgets the entries; memory beyond the ordinary is given back.
  void Clear();

  // The frame with every entry.
  const std::string& WholeFrame();
  // Builds in `frame` the one with the entries whose keys are in `keys`, in order; a key whose
  // property is no longer available moves to `gone`, which is empty before. False when there is no
  // such entry, and with all of `keys` left as they were also once `is_unwanted`, which is asked now
  // and then. std::bad_alloc leaves `keys` as they were.
  bool FrameFor(Keys& keys, Keys& gone, std::string& frame, const IsUnwanted& is_unwanted) const;

 private:
  struct Entry {
    std::string key;
    std::size_t begin;  // of its text
    std::size_t end;
    bool vanished;
  };

  bool Pick(Keys& keys, Keys& gone, ResponseFrame& picked, const IsUnwanted& is_unwanted) const;

  const std::atomic<bool>& stop_;
  std::vector<Entry> entries_;
  std::string text_;     // of the frame with all of them
  ResponseFrame frame_;  // writes it
};

}  // namespace valmere
