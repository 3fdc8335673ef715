// What a client may receive.
#pragma once

#include <cstddef>
#include <string_view>

#include "json/json_parser.h"
#include "protocol/wire/message_frame.h"
#include "protocol/wire/message_keys.h"
#include "tests/fuzz/fuzz_target.h"
#include "tests/support/frames.h"

namespace valmere::test {

// A client is told of properties, or asked to set its own.
inline void RequireMessage(std::string_view text) {
  const JsonValue message = ParseJson(text);
  Require(message.kind() == JsonKind::kObject, "a text that is received can be read");
  Require(message.members().size() == 1, "a message that is received has one member");
  const JsonMember& member = *message.members().begin();
  Require(member.key == keys::kGetResponses || member.key == keys::kSetRequests,
          "a message that is received is one of the two that clients get");
  Require(member.value.kind() == JsonKind::kArray, "its member has entries");
}

// A client that asks for everything again and again is told the same again and again.
inline constexpr std::size_t kTextBytesRead = 10'000;

// Looks at each frame, and into the first texts; what is left is the beginning of one that did not
// come whole.
inline std::string_view RequireFrames(std::string_view bytes) {
  const std::string identifier = IdentifierBytes();
  std::size_t read = 0;
  while (bytes.size() >= kFrameHeaderBytes) {
    Require(bytes.starts_with(identifier), "what is received is frames");
    const std::size_t length =
        DecodeLength(reinterpret_cast<const unsigned char*>(bytes.data()) + identifier.size());
    Require(length > 0, "no frame is empty");
    if (bytes.size() - kFrameHeaderBytes < length) return bytes;
    if (read < kTextBytesRead) RequireMessage(bytes.substr(kFrameHeaderBytes, length));
    read += length;
    bytes.remove_prefix(kFrameHeaderBytes + length);
  }
  return bytes;
}

}  // namespace valmere::test
