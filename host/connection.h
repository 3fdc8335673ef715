// One client of the socket, joined to one driver handle.
#pragma once

#include <uv.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <span>

#include "host/driver_library.h"
#include "host/frame_assembler.h"
#include "host/reply_pump.h"

namespace valmere::host {

// Purpose: carries a client's bytes to its own driver handle, frame by frame; its ReplyPump carries
// the driver's frames back. When the client has sent its last byte, the service is asked to end the
// session, so that what was asked before is still answered.
// Owner: the server. Close first; destroy it once `closed` was called.
// Threads: the loop's, except that `pump_ended` is called on the pump's thread.
// Errors: none; a failure closes it, with a message on standard error where it is no client's
// doing.
class Connection {
 public:
  struct Events {
    std::function<void()> pump_ended;  // PumpEnded must follow, on the loop's thread
    std::function<void()> closed;      // nothing refers to the connection any more
  };

  // Takes `socket` over. `scratch` is where bytes are read to; shared, for the length of a call.
  Connection(uv_loop_t& loop, const DriverLibrary& driver, int socket,
             std::span<unsigned char> scratch, Events events);
  ~Connection();
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;

  // The service has ended the session, or the client takes no more.
  void PumpEnded() { Close(); }
  // Ends handle, socket and pump without waiting for the pump's thread to be gone.
  void BeginClose();
  // Ends all and leads to `closed`.
  void Close();

 private:
  static void OnPoll(uv_poll_t* poll, int status, int events);
  void ReadOnce();
  void DrainAndClose();
  bool PassOn(std::span<const unsigned char> bytes);
  bool WriteToDriver(std::span<const unsigned char> piece);
  void ClientFinished();

  const DriverLibrary& driver_;
  const int socket_;
  const std::uint32_t handle_;
  const std::span<unsigned char> scratch_;
  const Events events_;
  FrameAssembler assembler_;
  uv_poll_t poll_{};
  bool close_begun_ = false;
  bool closing_ = false;
  std::unique_ptr<ReplyPump> pump_;  // from the first bytes that the driver got
};

}  // namespace valmere::host
