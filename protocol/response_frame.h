// The frame of a "PropertyGetResponses" message, written straight from the properties' texts.
//
// Answers and published changes are by far the most of what the service sends. They are written
// here without a JsonValue in between; the bytes are those that PropertyMessage::GetResponses and
// the JSON writer would make of the same records.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "protocol/property_records.h"

namespace valmere {

// Appends one entry's text, without anything between it and its neighbours.
void AppendResponseEntry(const PropertyResponseRecord& record, std::string& out);

// Purpose: builds one frame, entry by entry.
// Owner: whoever sends the frame; the buffer is the caller's and may be used again.
// Threads: one at a time.
// Errors: std::bad_alloc.
class ResponseFrame {
 public:
  // Starts the frame in `buffer`, replacing what it held.
  explicit ResponseFrame(std::string& buffer);
  ResponseFrame(const ResponseFrame&) = delete;
  ResponseFrame& operator=(const ResponseFrame&) = delete;

  // Makes room for so many entries of ordinary length at once.
  void Reserve(std::size_t entries);
  void Append(const PropertyResponseRecord& record);
  // Appends the text of an entry, or of several with commas between them.
  void AppendText(std::string_view entries);
  bool empty() const { return empty_; }
  // Completes the frame; nothing may be appended after it.
  void Finish();

 private:
  void Separate();

  std::string& buffer_;
  bool empty_ = true;
};

}  // namespace valmere
