// Each field of a frame is read by exactly one call. A driver session's stream gives what was
// written by one call to one call, so a field that comes in two pieces is an error of the peer. What
// comes over a socket in pieces is put together below.
#include "protocol/message/json_message.h"

#include <stdexcept>
#include <utility>

#include "json/json_parser.h"
#include "json/json_writer.h"
#include "protocol/message/parser_lock.h"
#include "protocol/wire/message_frame.h"

namespace valmere {
namespace {

// A session keeps a buffer of at most this size between messages.
constexpr std::size_t kKeptBufferBytes = std::size_t{16} * 1024;
// What the parser appends to a text.
constexpr std::size_t kParserBytes = 2;

// The parser's state is all in its call, so another message may be parsed in the middle of this
// one.
void LetNextParse() NO_THREAD_SAFETY_ANALYSIS {
  ParserLock().LetNextIn();
}

bool ReadField(Connection& connection, void* field, std::size_t size) {
  const int length = static_cast<int>(size);
  return connection.Read(field, length) == length;
}

}  // namespace

bool JsonMessage::ReadText(Connection& connection) {
  unsigned char identifier[kStreamFormatIdentifier.size()];
  unsigned char length_field[kLengthFieldBytes];
  if (!ReadField(connection, identifier, sizeof identifier)) return false;
  if (!ReadField(connection, length_field, sizeof length_field)) return false;
  const std::uint32_t length = DecodeLength(length_field);
  if (length < 1 || length > kMaximumMessageBytes) {
    connection.ExplainEnd(
        "a frame of " + std::to_string(length) +
        (length < 1 ? " bytes"
                    : " bytes, over the limit of " + std::to_string(kMaximumMessageBytes)));
    return false;
  }
  buffer_.reserve(length + kParserBytes);
  buffer_.resize(length);
  return ReadField(connection, buffer_.data(), length);
}

bool JsonMessage::Read(Connection& connection, const std::atomic<bool>* stopped) {
  bool read = false;
  if (ReadText(connection)) {
    const std::size_t length = buffer_.size();
    const ParseStop stop(stopped, LetNextParse);
    JsonValue value = Parse(stop);
    if (value.kind() == JsonKind::kObject) {
      object_.ReplaceMembers(value.TakeMembers());
      read = true;
    } else if (!stop.asked()) {
      connection.ExplainEnd("a text of " + std::to_string(length) +
                            " bytes that can't be read as a JSON object");
    }
  }
  if (buffer_.capacity() > kKeptBufferBytes) std::string().swap(buffer_);
  return read;
}

// Null for a text that can't be parsed, which is written to standard error when the lock is free
// again. While it waits for the lock it may be stopped.
JsonValue JsonMessage::Parse(const ParseStop& stop) {
  JsonValue value;
  std::string_view error;
  try {
    const ScopedParsing hold;
    if (!stop.asked()) value = ParseJsonInPlace(buffer_, stop, error);
  } catch (const std::invalid_argument&) {
    // A \u that no hexadecimal digits follow, in single quotes: a text that can't be read.
  }
  if (!error.empty()) ReportParseError(error);
  return value;
}

bool JsonMessage::Write(Connection& connection) {
  buffer_.clear();
  BeginFrame(buffer_);
  {
    const ScopedParsing hold;
    WriteJson(object_, buffer_);
  }
  EndFrame(buffer_);
  const int length = static_cast<int>(buffer_.size());
  return connection.Write(buffer_.data(), length) == length;
}

void JsonMessage::Clear() {
  object_ = JsonValue::Object();
}

}  // namespace valmere
