// One text for all: a subscriber to everything gets it as it is, others get pieces of it.
#include "store/update_entries.h"

#include <exception>

#include "protocol/response_frame.h"
#include "store/property_key.h"

namespace valmere {
namespace {

constexpr std::size_t kKeptBytes = std::size_t{64} * 1024;

template <class Container>
void ClearKeeping(std::size_t kept, Container& container) {
  container.clear();
  if (container.capacity() > kept) Container().swap(container);
}

}  // namespace

bool UpdateEntries::Append(const PropertyResponseRecord& record) {
  const bool vanished = record.status == kStatusNoLongerAvailable;
  if (text_.size() >= kMostBytes && !vanished) return false;
  const std::size_t old_end = text_.size();
  whole_frame_is_current_ = false;
  try {
    if (!entries_.empty()) text_.push_back(',');
    const std::size_t begin = text_.size();
    AppendResponseEntry(record, text_);
    entries_.push_back({PropertyKey(record.component, record.group_guid, record.guid).Text(), begin,
                        text_.size(), vanished});
  } catch (const std::exception&) {
    text_.resize(old_end);
    throw;
  }
  return true;
}

void UpdateEntries::Clear() {
  ClearKeeping(kKeptBytes / sizeof(Entry), entries_);
  ClearKeeping(kKeptBytes, text_);
  ClearKeeping(kKeptBytes, whole_frame_);
  whole_frame_is_current_ = false;
}

const std::string& UpdateEntries::WholeFrame() {
  if (!whole_frame_is_current_) {
    ResponseFrame frame(whole_frame_);
    frame.AppendText(text_);
    frame.Finish();
    whole_frame_is_current_ = true;
  }
  return whole_frame_;
}

bool UpdateEntries::FrameFor(Keys& keys, std::string& frame) const {
  ResponseFrame picked(frame);
  Keys gone;
  try {
    for (const Entry& entry : entries_) {
      const auto key = keys.find(entry.key);
      if (key == keys.end()) continue;
      picked.AppendText(TextOf(entry));
      if (entry.vanished) gone.insert(keys.extract(key));
    }
    if (picked.empty()) return false;
    picked.Finish();
  } catch (const std::exception&) {
    keys.merge(gone);
    throw;
  }
  return true;
}

}  // namespace valmere
