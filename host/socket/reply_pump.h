// The thread that carries what the driver says to one client.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>

#include "host/driver/driver_library.h"
#include "host/driver/frame_buffer.h"
#include "host/socket/outbox.h"
#include "host/system/small_thread.h"

namespace valmere::host {

// Purpose: reads whole frames from a driver handle, which blocks, and gives each to an outbox. It
// never waits for the client, so nothing piles up in the driver.
// Owner: the bridge. It ends by itself when the driver ends the session or the outbox takes no
// more; its destructor joins, so before it the handle must be closed.
// Threads: its own runs everything; `ended` is called on it, once, as the last thing. end() from
// any.
// Errors: the constructor throws std::system_error when no thread can be started.
class ReplyPump {
 public:
  enum class End {
    kNotYet,
    kSessionEnded,   // all that the driver had to say is in the outbox
    kClientGone,     // the socket takes nothing any more
    kTooMuchUnread,  // the outbox has more than a client may leave unread
    kFailed,         // reported
  };

  ReplyPump(const DriverLibrary& driver, std::uint32_t handle, Outbox& outbox,
            std::function<void()> ended);
  ReplyPump(const ReplyPump&) = delete;
  ReplyPump& operator=(const ReplyPump&) = delete;

  End end() const { return end_.load(); }

 private:
  void Run(const std::function<void()>& ended);
  End Pump();

  const DriverLibrary& driver_;
  const std::uint32_t handle_;
  Outbox& outbox_;
  FrameBuffer frame_;  // used by the thread alone
  std::atomic<End> end_{End::kNotYet};
  SmallThread thread_;  // last: it uses all of the above
};

}  // namespace valmere::host
