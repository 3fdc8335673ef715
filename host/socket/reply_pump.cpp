// The pump does as much at once as there is: it has a thread for it.
#include "host/socket/reply_pump.h"

#include <exception>
#include <string>
#include <utility>

#include "host/driver/read_frame.h"
#include "host/system/report.h"

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
    TryReport([&] { return "handle " + std::to_string(handle_) + ": " + error.what(); },
              ReportClient);
  }
  end_.store(end);
  ended();
}

ReplyPump::End ReplyPump::Pump() {
  while (ReadFrame(driver_, handle_, frame_)) {
    const Outbox::Sent sent = outbox_.Send(frame_);
    if (sent == Outbox::Sent::kClientGone) return End::kClientGone;
    if (sent == Outbox::Sent::kTooMuch) return End::kTooMuchUnread;
    if (frame_.unusually_large()) frame_ = {};
  }
  return End::kSessionEnded;
}

}  // namespace valmere::host
