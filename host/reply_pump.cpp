// PRN_Read reports its count whatever happened and leaves the buffer alone when the session has
// ended. So the room for the identifier is cleared before each read: anything else than the
// identifier afterwards means that nothing came. The driver puts a frame into its pipe in one
// piece, so once the identifier is there, the length and the text are there too.
#include "host/reply_pump.h"

#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <exception>
#include <utility>

#include "protocol/message_frame.h"

namespace valmere::host {
namespace {

constexpr std::size_t kUsualRoom = 4096;
constexpr std::size_t kLargestKeptRoom = 65536;

// False when the socket will take nothing more.
bool WaitUntilWritable(int socket) {
  pollfd wanted{socket, POLLOUT, 0};
  return poll(&wanted, 1, -1) > 0 || errno == EINTR;
}

}  // namespace

ReplyPump::ReplyPump(const DriverLibrary& driver, std::uint32_t handle, int socket,
                     std::function<void()> ended)
    : driver_(driver),
      handle_(handle),
      socket_(socket),
      thread_([this, ended = std::move(ended)] { Run(ended); }) {}

void ReplyPump::Run(const std::function<void()>& ended) {
  try {
    Pump();
  } catch (const std::exception& error) {
    std::fprintf(stderr, "valmered: handle %u: %s\n", static_cast<unsigned>(handle_), error.what());
  }
  ended();
}

void ReplyPump::Pump() {
  while (ReadFrame() && SendFrame()) {
    ShrinkRoom();
  }
}

bool ReplyPump::ReadFrame() {
  const std::size_t identifier_bytes = kStreamFormatIdentifier.size();
  MakeRoom(kFrameHeaderBytes);
  std::memset(frame_.get(), 0, identifier_bytes);
  driver_.Read(handle_, frame_.get(), identifier_bytes);
  if (std::memcmp(frame_.get(), kStreamFormatIdentifier.data(), identifier_bytes) != 0)
    return false;
  driver_.Read(handle_, frame_.get() + identifier_bytes, kLengthFieldBytes);
  const std::uint32_t length = DecodeLength(frame_.get() + identifier_bytes);
  frame_bytes_ = kFrameHeaderBytes + length;
  MakeRoom(frame_bytes_);
  // A read of no bytes would wait for the frame after this one.
  if (length > 0) driver_.Read(handle_, frame_.get() + kFrameHeaderBytes, length);
  return true;
}

bool ReplyPump::SendFrame() const {
  const unsigned char* next = frame_.get();
  std::size_t left = frame_bytes_;
  while (left > 0) {
    const ssize_t sent = send(socket_, next, left, MSG_NOSIGNAL);
    if (sent >= 0) {
      next += sent;
      left -= static_cast<std::size_t>(sent);
    } else if (errno == EAGAIN) {
      if (!WaitUntilWritable(socket_)) return false;
    } else if (errno != EINTR) {
      return false;
    }
  }
  return true;
}

// Room for a frame of `bytes`; keeps the header that may already be there.
void ReplyPump::MakeRoom(std::size_t bytes) {
  if (bytes <= room_) return;
  const std::size_t room = std::max(bytes, kUsualRoom);
  auto larger = std::make_unique_for_overwrite<unsigned char[]>(room);
  if (frame_ != nullptr) std::memcpy(larger.get(), frame_.get(), kFrameHeaderBytes);
  frame_ = std::move(larger);
  room_ = room;
}

// A client that once asked for everything must not hold that much memory while it is idle.
void ReplyPump::ShrinkRoom() {
  if (room_ <= kLargestKeptRoom) return;
  frame_.reset();
  room_ = 0;
}

}  // namespace valmere::host
