// Requests that are too long for one message. Internal to the library.
#pragma once

#include <cstddef>
#include <span>
#include <string>

#include "client/result.h"

namespace valmere::client {

// Sends the frame that `make` makes of the entries; when that is too long, of each half, and so on.
// One call's worth of entries each fitted a frame; all together may not.
template <class Entry, class MakeFrame, class SendFrame>
Result<void> SendInParts(std::span<const Entry> entries, MakeFrame make, SendFrame send) {
  if (entries.empty()) return {};
  const Result<std::string> frame = make(entries);
  if (frame) return send(*frame);
  if (entries.size() == 1) return frame.error();
  const std::size_t half = entries.size() / 2;
  if (Result<void> sent = SendInParts(entries.first(half), make, send); !sent) return sent;
  return SendInParts(entries.subspan(half), make, send);
}

}  // namespace valmere::client
