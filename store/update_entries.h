// The entries of one publishing period, as the text that subscribers get.
#pragma once

#include <cstddef>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "protocol/property_records.h"

namespace valmere {

// Purpose: collects entries, rendered once, and gives them out whole or by key.
// Owner: the change publisher.
// Threads: the publishing thread alone.
// Errors: std::bad_alloc; what was collected before stays as it is.
class UpdateEntries {
 public:
  using Keys = std::set<std::string, std::less<>>;

  // A period takes no more text than this, four times what a receiver takes in one frame. It keeps
  // a period that never ends from taking all memory.
  static constexpr std::size_t kMostBytes = std::size_t{16} << 20;

  // Refuses an entry that comes after kMostBytes of text, but for one that tells of a property's end:
  // whoever misses that never learns of it, and a property ends but once.
  bool Append(const PropertyResponseRecord& record);
  bool empty() const { return entries_.empty(); }
  std::size_t size() const { return entries_.size(); }
  // Forgets the entries; memory beyond the ordinary is given back.
  void Clear();

  // The frame with every entry. Rendered at the first call after a change.
  const std::string& WholeFrame();
  // Builds in `frame` the one with the entries whose keys are in `keys`, in order; a key whose
  // property is no longer available is taken out of `keys`. False when there is no such entry.
  // std::bad_alloc leaves `keys` as they were.
  bool FrameFor(Keys& keys, std::string& frame) const;

 private:
  struct Entry {
    std::string key;
    std::size_t begin;  // of its text
    std::size_t end;
    bool vanished;
  };

  std::string_view TextOf(const Entry& entry) const {
    return std::string_view(text_).substr(entry.begin, entry.end - entry.begin);
  }

  std::vector<Entry> entries_;
  std::string text_;  // the entries with commas between them
  std::string whole_frame_;
  bool whole_frame_is_current_ = false;
};

}  // namespace valmere
