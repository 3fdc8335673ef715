// PRN_Read reports its count whatever happened and leaves the buffer alone when the session has
// ended. So the room for the header is cleared before each read: anything else than the identifier
// afterwards means that nothing came. The driver puts a frame into its pipe in one piece, so once the
// identifier is there, the length and the text are there too, unless the connection closes the handle;
// its socket takes nothing more by then.
#include "host/reply_pump.h"

#include <cstddef>
#include <cstring>
#include <exception>
#include <string>
#include <utility>

#include "host/report.h"
#include "protocol/message_frame.h"

namespace valmere::host {

ReplyPump::ReplyPump(const DriverLibrary& driver, std::uint32_t handle, Outbox& outbox,
                     std::function<void()> ended)
    : driver_(driver),
      handle_(handle),
      outbox_(outbox),
      thread_([this, ended = std::move(ended)] { Run(ended); }) {}

void ReplyPump::Run(const std::function<void()>& ended) {
  End end = End::kFailed;
  try {
    end = Pump();
  } catch (const std::exception& error) {
    TryReport([&] { return "handle " + std::to_string(handle_) + ": " + error.what(); });
  }
  end_.store(end);
  ended();
}

ReplyPump::End ReplyPump::Pump() {
  while (ReadFrame()) {
    const Outbox::Sent sent = outbox_.Send(frame_);
    if (sent == Outbox::Sent::kClientGone) return End::kClientGone;
    if (sent == Outbox::Sent::kTooMuch) return End::kTooMuchUnread;
    if (frame_.unusually_large()) frame_ = {};
  }
  return End::kSessionEnded;
}

bool ReplyPump::ReadFrame() {
  const std::size_t identifier_bytes = kStreamFormatIdentifier.size();
  frame_.MakeRoom(kFrameHeaderBytes, 0);
  std::memset(frame_.data(), 0, kFrameHeaderBytes);
  driver_.Read(handle_, frame_.data(), identifier_bytes);
  if (std::memcmp(frame_.data(), kStreamFormatIdentifier.data(), identifier_bytes) != 0)
    return false;
  driver_.Read(handle_, frame_.data() + identifier_bytes, kLengthFieldBytes);
  const std::uint32_t length = DecodeLength(frame_.data() + identifier_bytes);
  frame_.set_size(kFrameHeaderBytes + length);
  frame_.MakeRoom(frame_.size(), kFrameHeaderBytes);
  // A read of no bytes would wait for the frame after this one.
  if (length > 0) driver_.Read(handle_, frame_.data() + kFrameHeaderBytes, length);
  return true;
}

}  // namespace valmere::host
