// Peeked bytes are handed out once, then the stream is the bare connection.
#include "protocol/stream/peekable_stream.h"

#include <algorithm>
#include <cstring>

namespace valmere {

// Asks for no more than there is room for, so that the bytes that a handler is chosen by are whole.
// Once there is no room they stay as they are, and who did not know them then never will.
bool PeekableStream::Peek(int count) {
  if (closed_.load()) return false;
  char bytes[kKeptLimit];
  const std::size_t room = kKeptLimit - kept_.size();
  const int got = client_->Read(bytes, std::min(count, static_cast<int>(room ? room : kKeptLimit)));
  if (got < 1) return false;
  kept_.append(bytes, std::min(static_cast<std::size_t>(got), room));
  return true;
}

int PeekableStream::ReadKept(void* buffer, int length) {
  const std::string_view kept = Kept();
  const std::size_t count = std::min(kept.size(), static_cast<std::size_t>(length));
  if (count == 0) return 0;
  std::memcpy(buffer, kept.data(), count);
  read_ += count;
  return static_cast<int>(count);
}

int PeekableStream::Read(void* buffer, int length) {
  if (closed_.load()) return kGone;
  const int kept = length > 0 ? ReadKept(buffer, length) : 0;
  if (kept == length) return kept;
  const int got = client_->Read(static_cast<char*>(buffer) + kept, length - kept);
  if (kept == 0) return got;
  return got > 0 ? kept + got : kept;
}

}  // namespace valmere
