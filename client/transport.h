// The way that frames travel between a client and the service.
#pragma once

#include <string>
#include <string_view>

#include "client/deadline.h"
#include "client/result.h"

namespace valmere::client {

// Purpose: carries whole frames both ways.
// Owner: a Client or a Session.
// Threads: one that sends and one that receives, at the same time if they like; Close and Interrupt
// from any, Interrupt from a signal handler too.
// Errors: kTimeout, kConnectionLost, kInterrupted, kProtocol. After a Send that failed, it is not
// known how much of the frame has gone out: the transport is closed.
class Transport {
 public:
  virtual ~Transport() = default;
  Transport(const Transport&) = delete;
  Transport& operator=(const Transport&) = delete;

  // `frame` is a whole frame, its header included.
  virtual Result<void> Send(std::string_view frame, Deadline deadline) = 0;
  // The next frame's text, without the header. A deadline that has passed still gives what is
  // there already; bytes of a frame that is not complete in time are kept for the next call.
  virtual Result<void> Receive(std::string& text, Deadline deadline) = 0;
  // Makes one call that waits, or else the next that would wait, return kInterrupted; the next
  // Receive also when it need not wait.
  virtual void Interrupt() noexcept = 0;
  // Ends the connection; a call that waits and every later one fail with kConnectionLost.
  virtual void Close() = 0;

 protected:
  Transport() = default;
};

}  // namespace valmere::client
