// One text for all: a subscriber to everything gets the whole of it, others get pieces.
#include "store/engine/update_entries.h"

#include <exception>

#include "store/property/property_key.h"

namespace valmere {
namespace {

constexpr std::size_t kKeptBytes = std::size_t{64} * 1024;
// How many entries are looked up in a subscriber's keys before its connection is checked again.
constexpr std::size_t kLookedUpAtOnce = 256;

template <class Container>
void ClearKeeping(std::size_t kept, Container& container) {
  container.clear();
  if (container.capacity() > kept) Container().swap(container);
}

}  // namespace

bool UpdateEntries::Append(const PropertyResponseRecord& record) {
  const bool vanished = record.status == kStatusNoLongerAvailable;
  frame_.set_most(vanished ? kMostBytes + kReservedBytes : kMostBytes);
  const std::size_t begin = frame_.end() + (frame_.empty() ? 0 : 1);  // behind the comma
  entries_.push_back({PropertyKey(record.component, record.group_guid, record.guid).Text(), begin,
                      begin, vanished});
  bool whole = false;
  try {
    whole = frame_.Append(record);
  } catch (const std::exception&) {
    entries_.pop_back();
    throw;
  }
  if (whole)
    entries_.back().end = frame_.end();
  else
    entries_.pop_back();
  return whole;
}

void UpdateEntries::Clear() {
  ClearKeeping(kKeptBytes / sizeof(Entry), entries_);
  ClearKeeping(kKeptBytes, text_);
  frame_.Clear();
}

const std::string& UpdateEntries::WholeFrame() {
  frame_.Finish();
  return text_;
}

bool UpdateEntries::FrameFor(Keys& keys, Keys& gone, std::string& frame,
                             const IsUnwanted& is_unwanted) const {
  ResponseFrame picked(frame, stop_);
  bool complete = false;
  try {
    complete = Pick(keys, gone, picked, is_unwanted);
  } catch (const std::exception&) {
    keys.merge(gone);
    throw;
  }
  if (!complete) keys.merge(gone);
  if (!complete || picked.empty()) return false;
  picked.Finish();
  return true;
}

bool UpdateEntries::Pick(Keys& keys, Keys& gone, ResponseFrame& picked,
                         const IsUnwanted& is_unwanted) const {
  std::size_t looked_up = 0;
  for (const Entry& entry : entries_) {
    if (++looked_up % kLookedUpAtOnce == 0 && is_unwanted()) return false;
    const auto key = keys.find(entry.key);
    if (key == keys.end()) continue;
    if (!picked.AppendText(frame_.Text(entry.begin, entry.end))) return false;
    if (entry.vanished) gone.insert(keys.extract(key));
  }
  return true;
}

}  // namespace valmere
