// What a client has still to be given.
#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <list>
#include <optional>

#include "client/mutex.h"
#include "host/driver/frame_buffer.h"

namespace valmere::host {

// Purpose: sends frames to a socket without ever waiting for the client. A frame goes out at once
// while nothing waits; what the socket does not take is kept in order until Flush gets it out.
// Owner: the bridge, whose pump sends and whose loop flushes. The socket must outlive it.
// Threads: Send on the pump's, the rest on any.
// Errors: std::bad_alloc from Send, after which the stream is broken.
class Outbox {
 public:
  using Clock = std::chrono::steady_clock;

  enum class Sent {
    kTaken,       // gone, or kept
    kClientGone,  // the socket takes nothing any more
    kTooMuch,     // with this frame, more than `limit` bytes would wait; it is not kept
  };

  // `socket` must not block. `backed_up` is called by Send, with nothing locked, when the first
  // bytes have to wait.
  Outbox(int socket, std::size_t limit, std::function<void()> backed_up);

  // May take the frame's memory.
  Sent Send(FrameBuffer& frame);
  // Sends what the socket takes now, a part of it if it is much. False when it takes nothing any
  // more.
  bool Flush();
  // When the oldest byte that waits was given to Send; nothing while none waits.
  std::optional<Clock::time_point> waiting_since() const;

 private:
  struct Waiting {
    FrameBuffer frame;
    std::size_t sent = 0;
    Clock::time_point since;
  };

  // Adds to `sent` what the socket takes now; false when it takes nothing any more.
  bool SendNow(const FrameBuffer& frame, std::size_t& sent) const;
  // Keeps what is left behind the first `sent` bytes.
  Sent Enqueue(FrameBuffer& frame, std::size_t sent);
  void MarkSent(std::size_t bytes) REQUIRES(lock_);

  const int socket_;
  const std::size_t limit_;
  const std::function<void()> backed_up_;

  mutable client::Mutex lock_;  // also held to flush: the bytes of one frame stay together
  std::list<Waiting> waiting_ GUARDED_BY(lock_);  // takes no memory while nothing waits
  std::size_t waiting_bytes_ GUARDED_BY(lock_) = 0;
};

}  // namespace valmere::host
