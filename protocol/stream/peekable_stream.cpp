// Peeked bytes are handed out once, then the stream is the bare connection.
#include "protocol/stream/peekable_stream.h"

#include <algorithm>
#include <cstring>

namespace valmere {

// Asks for no more than there is room for, so that the bytes that a handler is chosen by are whole.
// Once there is no room they stay as they are: a handler that did not recognise them never will.
bool PeekableStream::Peek(int count) {
  if (closed_.load()) return false;
  char bytes[kMostPeeked];
  const std::size_t room = kMostPeeked - peeked_.size();
  const int got =
      client_->Read(bytes, std::min(count, static_cast<int>(room ? room : kMostPeeked)));
  if (got < 1) return false;
  peeked_.append(bytes, std::min(static_cast<std::size_t>(got), room));
  return true;
}

int PeekableStream::ReadPeeked(void* buffer, int length) {
  const std::string_view peeked = Peeked();
  const std::size_t count = std::min(peeked.size(), static_cast<std::size_t>(length));
  if (count == 0) return 0;
  std::memcpy(buffer, peeked.data(), count);
  read_ += count;
  return static_cast<int>(count);
}

int PeekableStream::Read(void* buffer, int length) {
  if (closed_.load()) return kGone;
  int count = length > 0 ? ReadPeeked(buffer, length) : 0;
  if (count == length) return count;
  do {
    const int got = client_->Read(static_cast<char*>(buffer) + count, length - count);
    if (got < 1) return count == 0 ? got : count;
    count += got;
  } while (count < length && client_->ComesInPieces());
  return count;
}

}  // namespace valmere
