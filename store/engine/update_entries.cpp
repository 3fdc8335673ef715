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
  ResponseFrame& frame = Frame();
  frame.set_most(vanished ? kMostBytes + kReservedBytes : kMostBytes);
  const std::size_t begin = frame.end() + (frame.empty() ? 0 : 1);  // behind the comma
  entries_.push_back({PropertyKey(record.component, record.group_guid, record.guid).Text(), begin,
                      begin, vanished});
  bool whole = false;
  try {
    whole = frame.Append(record);
  } catch (const std::exception&) {
    entries_.pop_back();
    throw;
  }
  if (whole)
    entries_.back().end = frame.end();
  else
    entries_.pop_back();
  return whole;
}

void UpdateEntries::Clear() noexcept {
  ClearKeeping(kKeptBytes / sizeof(Entry), entries_);
  ClearKeeping(kKeptBytes / sizeof(std::size_t), picked_);
  ClearKeeping(kKeptBytes / sizeof(std::size_t), rendered_);
  frame_.reset();
  whole_.Trim(kKeptBytes);
  picked_frame_.Trim(kKeptBytes);
}

ResponseFrame& UpdateEntries::Frame() {
  if (!frame_) frame_.emplace(whole_.text(), stop_);
  return *frame_;
}

SharedFrame UpdateEntries::WholeFrame() {
  Frame().Finish();
  return whole_.frame();
}

SharedFrame UpdateEntries::FrameFor(Keys& keys, Keys& gone, const IsUnwanted& is_unwanted) {
  SharedFrame frame;
  try {
    if (Pick(keys, gone, is_unwanted)) {
      if (picked_.empty()) return frame;
      frame = PickedFrame();
    }
  } catch (const std::exception&) {
    keys.merge(gone);
    throw;
  }
  if (!frame) keys.merge(gone);
  return frame;
}

bool UpdateEntries::Pick(Keys& keys, Keys& gone, const IsUnwanted& is_unwanted) {
  picked_.clear();
  for (std::size_t place = 0; place < entries_.size(); ++place) {
    if ((place + 1) % kLookedUpAtOnce == 0 && is_unwanted()) return false;
    const Entry& entry = entries_[place];
    const auto key = keys.find(entry.key);
    if (key == keys.end()) continue;
    picked_.push_back(place);
    if (entry.vanished) gone.insert(keys.extract(key));
  }
  return true;
}

// Many clients name the same properties, and get the same frame. Null when `stop_` is up.
SharedFrame UpdateEntries::PickedFrame() {
  if (stop_.load(std::memory_order_relaxed)) return nullptr;
  if (picked_.size() == entries_.size()) return WholeFrame();
  if (picked_ == rendered_) return picked_frame_.frame();
  rendered_.clear();
  if (!RenderPicked()) return nullptr;
  rendered_.swap(picked_);
  return picked_frame_.frame();
}

bool UpdateEntries::RenderPicked() {
  ResponseFrame picked(picked_frame_.text(), stop_);
  for (const std::size_t place : picked_)
    if (!picked.AppendText(Frame().Text(entries_[place].begin, entries_[place].end))) return false;
  picked.Finish();
  return true;
}

}  // namespace valmere
