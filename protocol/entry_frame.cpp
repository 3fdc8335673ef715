// Entries as text. Keys stand in ascending byte order, as the JSON writer puts them.
#include "protocol/entry_frame.h"

#include <algorithm>
#include <array>
#include <exception>

#include "json/json_escape.h"
#include "protocol/message_frame.h"
#include "protocol/message_keys.h"

namespace valmere {
namespace {

constexpr std::string_view kEntryEnd = "\"}";
constexpr std::string_view kTextEnd = "]}";

// What is copied or escaped without a look at `stop`; on a slow machine some milliseconds.
constexpr std::size_t kEscapedAtOnce = std::size_t{64} * 1024;
constexpr std::size_t kCopiedAtOnce = std::size_t{1} << 20;
// A byte that needs it becomes \u and four digits.
constexpr std::size_t kMostOfAnEscape = 6;
// Up to here the buffer grows as it likes. A larger one is moved in pieces.
constexpr std::size_t kOrdinaryBufferBytes = std::size_t{1} << 20;

std::size_t RawSize(std::span<const EntryPart> parts) {
  std::size_t size = kEntryEnd.size();
  for (const EntryPart& part : parts)
    size += part.before.size() + part.text.size();
  return size;
}

}  // namespace

EntryFrame::EntryFrame(std::string_view key, std::string& buffer, const std::atomic<bool>& stop)
    : key_(key), buffer_(buffer), stop_(stop) {
  Clear();
}

void EntryFrame::Clear() {
  buffer_.clear();
  BeginFrame(buffer_);
  buffer_.append("{\"").append(key_).append("\": [");
  start_ = end_ = buffer_.size();
  too_long_ = false;
}

// An entry with names of twenty characters has some 330 bytes.
void EntryFrame::Reserve(std::size_t entries) {
  constexpr std::size_t kOrdinaryEntryBytes = 352;
  const std::size_t room = std::min(most_, buffer_.max_size()) / kOrdinaryEntryBytes;
  buffer_.reserve(buffer_.size() + std::min(entries, room) * kOrdinaryEntryBytes);
}

bool EntryFrame::AppendText(std::string_view entries) {
  return AppendWhole(entries.size(), [&] { return PutPieces(entries, kCopiedAtOnce, 1); });
}

bool EntryFrame::AppendEntry(std::span<const EntryPart> parts) {
  const std::size_t raw = RawSize(parts);
  return AppendWhole(raw, [&] {
    return raw <= kEscapedAtOnce ? PutShort(parts, raw * kMostOfAnEscape) : PutLong(parts);
  });
}

void EntryFrame::Finish() {
  buffer_.resize(end_);
  buffer_.append(kTextEnd);
  EndFrame(buffer_);
}

// All of it or nothing; `least` bytes come, and perhaps more for escapes.
template <class Append>
bool EntryFrame::AppendWhole(std::size_t least, Append append) {
  buffer_.resize(end_);
  if (stop_.load(std::memory_order_relaxed) || !Fits(least + (empty() ? 0 : 1))) return false;
  bool whole = false;
  try {
    if (!MakeRoom(1)) return false;
    if (!empty()) buffer_.push_back(',');
    whole = append() && Fits(0);
  } catch (const std::exception&) {
    buffer_.resize(end_);
    throw;
  }
  if (whole)
    end_ = buffer_.size();
  else
    buffer_.resize(end_);
  return whole;
}

// Nearly every entry: `most` bytes at the most.
bool EntryFrame::PutShort(std::span<const EntryPart> parts, std::size_t most) {
  if (!MakeRoom(most)) return false;
  for (const EntryPart& part : parts) {
    buffer_.append(part.before);
    AppendEscaped(part.text, buffer_);
  }
  buffer_.append(kEntryEnd);
  return true;
}

bool EntryFrame::PutLong(std::span<const EntryPart> parts) {
  for (const EntryPart& part : parts) {
    if (!PutPieces(part.before, kCopiedAtOnce, 1)) return false;
    if (!PutPieces(part.text, kEscapedAtOnce, kMostOfAnEscape)) return false;
  }
  return PutPieces(kEntryEnd, kCopiedAtOnce, 1);
}

// `growth` is how many bytes one may become; a text that does not grow is copied as it is.
bool EntryFrame::PutPieces(std::string_view text, std::size_t piece, std::size_t growth) {
  for (; !text.empty(); text.remove_prefix(std::min(piece, text.size()))) {
    const std::string_view next = text.substr(0, piece);
    if (stop_.load(std::memory_order_relaxed) || !Fits(0)) return false;
    if (!MakeRoom(next.size() * growth)) return false;
    if (growth == 1)
      buffer_.append(next);
    else
      AppendEscaped(next, buffer_);
  }
  return true;
}

// A long text is moved to a larger place in pieces, and takes no larger one than it may ever need.
bool EntryFrame::MakeRoom(std::size_t bytes) {
  const std::size_t needed = buffer_.size() + bytes + kTextEnd.size();
  if (needed <= buffer_.capacity() || buffer_.size() < kOrdinaryBufferBytes) return true;
  std::string larger;
  larger.reserve(std::max(needed, std::min(2 * buffer_.capacity(), most_)));
  for (std::size_t at = 0; at < buffer_.size(); at += kCopiedAtOnce) {
    if (stop_.load(std::memory_order_relaxed)) return false;
    larger.append(buffer_, at, kCopiedAtOnce);
  }
  buffer_.swap(larger);
  return true;
}

bool EntryFrame::Fits(std::size_t bytes) {
  if (buffer_.size() + kTextEnd.size() <= most_ &&
      bytes <= most_ - buffer_.size() - kTextEnd.size())
    return true;
  too_long_ = true;
  return false;
}

ResponseFrame::ResponseFrame(std::string& buffer, const std::atomic<bool>& stop)
    : EntryFrame(keys::kGetResponses, buffer, stop) {}

bool ResponseFrame::Append(const PropertyResponseRecord& record) {
  return AppendEntry(std::array<EntryPart, 8>{{
      {"{\"Component\": \"", record.component},
      {"\",\"ComponentString\": \"", record.component_name},
      {"\",\"GUID\": \"", record.group_guid},
      {":", record.guid},
      {"\",\"GroupString\": \"", record.group_name},
      {"\",\"NameString\": \"", record.name},
      {"\",\"Status\": \"", record.status},
      {"\",\"Value\": \"", record.value},
  }});
}

SetFrame::SetFrame(std::string& buffer, const std::atomic<bool>& stop)
    : EntryFrame(keys::kSetRequests, buffer, stop) {}

bool SetFrame::Append(const PropertySetRecord& record) {
  return AppendEntry(std::array<EntryPart, 4>{{
      {"{\"Component\": \"", record.component},
      {"\",\"GUID\": \"", record.group_guid},
      {":", record.guid},
      {"\",\"Value\": \"", record.value},
  }});
}

}  // namespace valmere
