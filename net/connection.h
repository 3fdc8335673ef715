// The byte-stream connection: what a TCP connection, a file and a driver session look like to the
// message layer.
#pragma once

#include <atomic>
#include <cstdint>
#include <string_view>

#include "driver/sync/event_flags.h"
#include "net/client_account.h"
#include "net/shared_frame.h"
#include "platform/kernel.h"

namespace valmere {

// Purpose: one ordered stream of bytes each way.
// Owner: shared; the last holder ends it.
// Threads: one reader, any writers one at a time (ClientConnection sees to that); Close from any.
// Errors: negative counts, the kGone, kFailed and kDrained below; callers treat each as the end.
class Connection {
 public:
  static constexpr int kGone = -1;     // the peer or the link is gone
  static constexpr int kFailed = -2;   // any other error
  static constexpr int kDrained = -3;  // a closed pipe with nothing left in it
  static constexpr int kNoRoom = -4;   // WriteForOther alone; the connection goes on

  Connection() : instance_number_(next_instance_number_.fetch_add(1)) {}
  virtual ~Connection() = default;
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;

  // Reads up to `length` bytes, waiting for the first; the count, or an error.
  virtual int Read(void* buffer, int length) = 0;
  // Writes `length` bytes; the count taken, or an error.
  virtual int Write(const void* buffer, int length) = 0;
  // The same, but where the connection knows which thread waits for the bytes, it puts it into
  // `wake`, whose destructor wakes it: so no thread is woken under a lock that the caller holds.
  // The connection must outlive `wake`.
  virtual int WriteDeferringWake(const void* buffer, int length,
                                 EventFlags::PendingWake& /*wake*/) {
    return Write(buffer, length);
  }
  // The same for a frame that may be kept instead of copied.
  virtual int WriteShared(const SharedFrame& frame, EventFlags::PendingWake& wake) {
    return WriteDeferringWake(frame->data(), static_cast<int>(frame->size()), wake);
  }
  // The same for what another client sends to this one. kNoRoom, with nothing written, when so much
  // waits for the peer already that the other client has to wait first.
  virtual int WriteForOther(const SharedFrame& frame, EventFlags::PendingWake& wake) {
    return WriteShared(frame, wake);
  }
  // Waits until WriteForOther finds room or the connection is closed; false at `deadline`. To be
  // called with no lock held.
  virtual bool AwaitRoom(platform::Ticks /*deadline*/) { return true; }
  // Whether what one call wrote may arrive in several reads.
  virtual bool ComesInPieces() const { return false; }
  // Says why the service is about to end the stream, for the operator of a desk.
  virtual void ExplainEnd(std::string_view /*cause*/) {}
  // Where the memory that the peer takes is counted; null when it is not.
  virtual ClientAccount* account() { return nullptr; }
  // Ends the stream both ways; blocked calls return. May be called again.
  virtual void Close() = 0;
  // False once either side has closed it, as far as that can be known without a transfer.
  virtual bool IsOpen() const = 0;

  // Counts the streams of this process, from 0.
  std::uint32_t instance_number() const { return instance_number_; }

 private:
  static inline std::atomic<std::uint32_t> next_instance_number_{0};
  const std::uint32_t instance_number_;
};

}  // namespace valmere
