// The frame of a message whose only key holds an array of entries, written straight from texts.
//
// Answers, published changes and sets that are passed on are nearly all that the service sends.
// They are written here without a JsonValue in between; the bytes are those that PropertyMessage's
// builders and the JSON writer would make of the same records.
#pragma once

#include <atomic>
#include <cstddef>
#include <limits>
#include <string>
#include <string_view>

#include "protocol/wire/frame_memory.h"
#include "protocol/wire/property_records.h"

namespace valmere {

// Purpose: builds one frame, entry by entry, up to a bound and for as long as it is wanted.
// Owner: the sender of the frame; the buffer is the caller's and may be used again.
// Threads: one at a time; any other may raise `stop`.
// Errors: std::bad_alloc. An entry that can't be appended leaves the frame as it was.
// No step takes long: a text of any length is looked at in pieces, between which `stop` is read.
class EntryFrame {
 public:
  static constexpr std::size_t kNoBound = std::numeric_limits<std::size_t>::max();

  EntryFrame(const EntryFrame&) = delete;
  EntryFrame& operator=(const EntryFrame&) = delete;

  // Starts a new frame.
  void Clear();
  // The size in bytes that the whole frame may have from here on.
  void set_most(std::size_t bytes) { most_ = bytes; }
  // Makes room at once for that many entries of so many bytes each, as far as the bound allows.
  void Reserve(std::size_t entries, std::size_t entry_bytes);
  // Appends the text of an entry, or of several with commas between them. False when the frame
  // would be too long, or when `stop` is up.
  bool AppendText(std::string_view entries);
  // Completes the frame, if it isn't yet; another append opens it again.
  void Finish();

  bool empty() const { return end_ == start_; }
  // Whether an entry was refused because it would have been too long.
  bool too_long() const { return too_long_; }
  // Where the appended entries end, and a part of them.
  std::size_t end() const { return end_; }
  std::string_view Text(std::size_t begin, std::size_t end) const {
    return std::string_view(buffer_).substr(begin, end - begin);
  }

 protected:
  EntryFrame(std::string_view key, std::string& buffer, const std::atomic<bool>& stop,
             FrameMemory* memory);
  // As AppendText, of one entry.
  template <class Record>
  bool AppendEntry(const Record& record);

 private:
  template <class Append>
  bool AppendWhole(std::size_t least, Append append);
  bool HasRoomFor(std::size_t bytes) const;
  void Reopen();
  template <class Record>
  void PutShort(const Record& record);
  template <class Record>
  bool PutLong(const Record& record);
  bool PutPieces(std::string_view text, std::size_t piece, std::size_t growth);
  bool NeedsNoRoom(std::size_t bytes) const;
  bool MakeRoom(std::size_t bytes);
  bool MoveToBuffer(std::size_t bytes);
  bool Fits(std::size_t bytes);

  const std::string_view key_;
  std::string& buffer_;
  const std::atomic<bool>& stop_;
  FrameMemory* const memory_;
  std::size_t most_ = kNoBound;
  std::size_t start_ = 0;  // of the entries
  std::size_t end_ = 0;    // of the entries; behind it stands what completes the frame, if anything
  bool too_long_ = false;
};

// "PropertyGetResponses": answers and published changes.
class ResponseFrame : public EntryFrame {
 public:
  // A frame that grows takes another buffer in place of `buffer` from `memory`, if there is one.
  ResponseFrame(std::string& buffer, const std::atomic<bool>& stop, FrameMemory* memory = nullptr);
  bool Append(const PropertyResponseRecord& record);
};

// "PropertySetRequests": sets on their way to an owner.
class SetFrame : public EntryFrame {
 public:
  SetFrame(std::string& buffer, const std::atomic<bool>& stop);
  bool Append(const PropertySetRecord& record);
};

}  // namespace valmere
