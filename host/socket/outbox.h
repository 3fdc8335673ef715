// What a client has still to be given.
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <list>
#include <optional>
#include <string_view>

#include "client/deadline.h"
#include "client/mutex.h"
#include "net/client_account.h"
#include "net/shared_frame.h"

namespace valmere::host {

// Purpose: sends frames to a socket without ever waiting for the client. A frame goes out at once
// while nothing waits; what the socket does not take is kept in order until Flush gets it out.
// Owner: the client's stream. The socket and the account must outlive it.
// Threads: any.
// Errors: std::bad_alloc from Send. A part of the frame may have been sent, so nothing may follow.
class Outbox {
 public:
  enum class Kind {
    kAnswer,    // to the client's own request, of which there is one at a time: always kept
    kNews,      // what it has subscribed to
    kForOther,  // what another client sends it
  };
  enum class Sent {
    kWhole,    // the socket has all of it
    kWaits,    // it is kept, in whole or in part
    kGone,     // the socket takes nothing any more
    kTooMuch,  // of news: more than may would wait; it is not kept
    kNoRoom,   // of another's: so much waits that the other has to wait first; it is not kept
  };
  // What there was to send, and what to keep of it: the frame, or a copy where there is none.
  struct Frame {
    std::string_view bytes;
    const SharedFrame* shared = nullptr;
  };

  // `socket` is sent to without waiting, whether it blocks or not. At most `most_unread` bytes of
  // news wait, and no more than the account has left; what others send counts for neither, so that
  // they can't have the client closed.
  Outbox(int socket, std::size_t most_unread, ClientAccount& account);
  ~Outbox();
  Outbox(const Outbox&) = delete;
  Outbox& operator=(const Outbox&) = delete;

  // What has to wait is marked with `now`, on the caller's clock.
  Sent Send(const Frame& frame, Kind kind, std::chrono::milliseconds now) EXCLUDES(lock_);
  // Sends what the socket takes now, a part of it if it is much. False when it takes nothing any
  // more.
  bool Flush() EXCLUDES(lock_);
  // Drops what waits, and takes nothing from here on.
  void Abandon() EXCLUDES(lock_);
  // Waits until what another client sends finds room, or all is abandoned; false at the deadline.
  bool AwaitRoom(client::Deadline deadline) EXCLUDES(lock_);

  bool empty() const { return waiting_count_.load() == 0; }
  bool has_answer() const { return answers_.load() != 0; }
  // What the oldest frame that waits was marked with; nothing while none waits.
  std::optional<std::chrono::milliseconds> waiting_since() const EXCLUDES(lock_);

 private:
  struct Waiting {
    SharedFrame frame;
    std::size_t sent;
    Kind kind;
    std::chrono::milliseconds since;

    std::size_t left() const { return frame->size() - sent; }
  };

  bool SendNow(std::string_view bytes, std::size_t& sent) const;
  // kWaits when a frame of that many bytes may wait behind those that do.
  Sent Judge(std::size_t bytes, Kind kind) const REQUIRES(lock_);
  bool HasRoom() const REQUIRES(lock_);
  void Keep(const Frame& frame, std::size_t sent, Kind kind, std::chrono::milliseconds now)
      REQUIRES(lock_);
  void MarkSent(std::size_t bytes) REQUIRES(lock_);
  // `bytes` of it wait no more.
  void Discount(const Waiting& waiting, std::size_t bytes) REQUIRES(lock_);

  const int socket_;
  const std::size_t most_unread_;
  ClientAccount& account_;

  mutable client::Mutex lock_;  // also held to send: the bytes of one frame stay together
  bool abandoned_ GUARDED_BY(lock_) = false;
  std::list<Waiting> waiting_ GUARDED_BY(lock_);  // takes no memory while nothing waits
  std::size_t news_ GUARDED_BY(lock_) = 0;        // bytes of them that wait
  std::size_t of_others_ GUARDED_BY(lock_) = 0;   // the same
  std::condition_variable room_;
  std::atomic<std::size_t> waiting_count_{0};  // changed under the lock
  std::atomic<std::size_t> answers_{0};        // the same
};

}  // namespace valmere::host
