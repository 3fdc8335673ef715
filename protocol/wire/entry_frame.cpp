// Entries as text. Keys stand in ascending byte order, as the JSON writer puts them.
#include "protocol/wire/entry_frame.h"

#include <algorithm>
#include <exception>

#include "json/json_escape.h"
#include "protocol/wire/message_frame.h"
#include "protocol/wire/message_keys.h"

namespace valmere {
namespace {

constexpr std::string_view kTextEnd = "]}";

// How much is copied or escaped between two looks at `stop`; on a slow machine some milliseconds.
constexpr std::size_t kEscapedAtOnce = std::size_t{64} * 1024;
constexpr std::size_t kCopiedAtOnce = std::size_t{1} << 20;
// The longest escape of a byte is \u and four digits.
constexpr std::size_t kMostOfAnEscape = 6;
// Up to here the string grows the buffer itself. A larger one is moved in pieces.
constexpr std::size_t kOrdinaryBufferBytes = std::size_t{1} << 20;
// The same where there is a memory to take the larger one from.
constexpr std::size_t kOwnBufferBytes = std::size_t{16} * 1024;

// An entry's fixed parts and texts, in their order.
template <class Sink>
void RenderEntry(const PropertyResponseRecord& record, Sink& sink) {
  sink.Fixed("{\"Component\": \"");
  sink.Text(record.component);
  sink.Fixed("\",\"ComponentString\": \"");
  sink.Text(record.component_name);
  sink.Fixed("\",\"GUID\": \"");
  sink.Text(record.group_guid);
  sink.Fixed(":");
  sink.Text(record.guid);
  sink.Fixed("\",\"GroupString\": \"");
  sink.Text(record.group_name);
  sink.Fixed("\",\"NameString\": \"");
  sink.Text(record.name);
  sink.Fixed("\",\"Status\": \"");
  sink.Text(record.status);
  sink.Fixed("\",\"Value\": \"");
  sink.Text(record.value);
  sink.Fixed("\"}");
}

template <class Sink>
void RenderEntry(const PropertySetRecord& record, Sink& sink) {
  sink.Fixed("{\"Component\": \"");
  sink.Text(record.component);
  sink.Fixed("\",\"GUID\": \"");
  sink.Text(record.group_guid);
  sink.Fixed(":");
  sink.Text(record.guid);
  sink.Fixed("\",\"Value\": \"");
  sink.Text(record.value);
  sink.Fixed("\"}");
}

// Adds up how long an entry is before anything is escaped.
struct RawSize {
  void Fixed(std::string_view text) { bytes += text.size(); }
  void Text(std::string_view text) { bytes += text.size(); }
  std::size_t bytes = 0;
};

// Adds up how long it becomes.
struct WholeSize {
  void Fixed(std::string_view text) { bytes += text.size(); }
  void Text(std::string_view text) { bytes += EscapedSize(text); }
  std::size_t bytes = 0;
};

// Appends part by part.
struct PlainWriter {
  void Fixed(std::string_view text) { out.append(text); }
  void Text(std::string_view text) { AppendEscaped(text, out); }
  std::string& out;
};

// Appends through a function that may give up: (text, bytes at once, bytes that one may become).
template <class Put>
struct PieceWriter {
  void Fixed(std::string_view text) { whole = whole && put(text, kCopiedAtOnce, 1); }
  void Text(std::string_view text) { whole = whole && put(text, kEscapedAtOnce, kMostOfAnEscape); }
  Put put;
  bool whole = true;
};

}  // namespace

EntryFrame::EntryFrame(std::string_view key, std::string& buffer, const std::atomic<bool>& stop,
                       FrameMemory* memory)
    : key_(key), buffer_(buffer), stop_(stop), memory_(memory) {
  Clear();
}

void EntryFrame::Clear() {
  buffer_.clear();
  BeginFrame(buffer_);
  buffer_.append("{\"").append(key_).append("\": [");
  start_ = end_ = buffer_.size();
  too_long_ = false;
}

// Where `stop` is up nothing is reserved, and the next append is refused.
void EntryFrame::Reserve(std::size_t entries, std::size_t entry_bytes) {
  const std::size_t room = std::min(most_, buffer_.max_size()) / entry_bytes;
  const std::size_t bytes = buffer_.size() + std::min(entries, room) * entry_bytes;
  if (bytes > buffer_.capacity()) MoveToBuffer(bytes);
}

bool EntryFrame::AppendText(std::string_view entries) {
  return AppendWhole(entries.size(), [&] { return PutPieces(entries, kCopiedAtOnce, 1); });
}

// Removes what completed the frame, and puts a comma behind the entries that there are.
inline void EntryFrame::Reopen() {
  if (buffer_.size() != end_) buffer_.resize(end_);
  if (!empty()) buffer_.push_back(',');
}

template <class Record>
bool EntryFrame::AppendEntry(const Record& record) {
  RawSize raw;
  RenderEntry(record, raw);
  const std::size_t least = raw.bytes;
  const std::size_t most = least * kMostOfAnEscape;
  if (least <= kEscapedAtOnce && HasRoomFor(most)) {
    Reopen();
    PutShort(record);
    end_ = buffer_.size();
    return true;
  }
  return AppendWhole(least, [&] {
    if (least > kEscapedAtOnce) return PutLong(record);
    if (!NeedsNoRoom(most)) {
      WholeSize whole;
      RenderEntry(record, whole);
      if (!MakeRoom(whole.bytes)) return false;
    }
    PutShort(record);
    return true;
  });
}

// Whether an entry of at most that many bytes can neither be refused nor need memory: nearly every
// entry of a frame that has grown.
bool EntryFrame::HasRoomFor(std::size_t bytes) const {
  const std::size_t end = end_ + 1 + bytes + kTextEnd.size();
  return end <= buffer_.capacity() && end <= most_ && !stop_.load(std::memory_order_relaxed);
}

// A frame that is complete may have been handed on: it is left alone.
void EntryFrame::Finish() {
  if (buffer_.size() != end_) return;
  buffer_.append(kTextEnd);
  EndFrame(buffer_);
}

// Appends all of it or nothing: `least` bytes, and perhaps more for escapes.
template <class Append>
bool EntryFrame::AppendWhole(std::size_t least, Append append) {
  buffer_.resize(end_);
  if (stop_.load(std::memory_order_relaxed) || !Fits(least + (empty() ? 0 : 1))) return false;
  bool whole = false;
  try {
    if (!MakeRoom(1)) return false;
    Reopen();
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

template <class Record>
void EntryFrame::PutShort(const Record& record) {
  PlainWriter writer{buffer_};
  RenderEntry(record, writer);
}

template <class Record>
bool EntryFrame::PutLong(const Record& record) {
  const auto put = [this](std::string_view text, std::size_t piece, std::size_t growth) {
    return PutPieces(text, piece, growth);
  };
  PieceWriter<decltype(put)> writer{put};
  RenderEntry(record, writer);
  return writer.whole;
}

// `growth` is the number of bytes that one may become; with 1 the text is copied as it is.
bool EntryFrame::PutPieces(std::string_view text, std::size_t piece, std::size_t growth) {
  for (; !text.empty(); text.remove_prefix(std::min(piece, text.size()))) {
    const std::string_view next = text.substr(0, piece);
    if (stop_.load(std::memory_order_relaxed) || !Fits(0)) return false;
    if (!NeedsNoRoom(next.size() * growth) &&
        !MakeRoom(growth == 1 ? next.size() : EscapedSize(next)))
      return false;
    if (growth == 1)
      buffer_.append(next);
    else
      AppendEscaped(next, buffer_);
  }
  return true;
}

// Whether so many bytes more fit, or may be left to the string.
bool EntryFrame::NeedsNoRoom(std::size_t bytes) const {
  const std::size_t needed = buffer_.size() + bytes + kTextEnd.size();
  if (needed <= buffer_.capacity()) return true;
  return memory_ != nullptr ? needed <= kOwnBufferBytes : buffer_.size() < kOrdinaryBufferBytes;
}

// The larger buffer is no larger than the frame may become.
bool EntryFrame::MakeRoom(std::size_t bytes) {
  if (NeedsNoRoom(bytes)) return true;
  const std::size_t needed = buffer_.size() + bytes + kTextEnd.size();
  return MoveToBuffer(std::max(needed, std::min(2 * buffer_.capacity(), most_)));
}

// A long text is moved in pieces. False, and nothing is moved, when `stop` is up.
bool EntryFrame::MoveToBuffer(std::size_t bytes) {
  std::string larger;
  if (memory_ != nullptr) larger = memory_->Take(bytes);
  larger.reserve(bytes);
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

ResponseFrame::ResponseFrame(std::string& buffer, const std::atomic<bool>& stop,
                             FrameMemory* memory)
    : EntryFrame(keys::kGetResponses, buffer, stop, memory) {}

bool ResponseFrame::Append(const PropertyResponseRecord& record) {
  return AppendEntry(record);
}

SetFrame::SetFrame(std::string& buffer, const std::atomic<bool>& stop)
    : EntryFrame(keys::kSetRequests, buffer, stop, nullptr) {}

bool SetFrame::Append(const PropertySetRecord& record) {
  return AppendEntry(record);
}

}  // namespace valmere
