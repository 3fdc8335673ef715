// One client of the socket, joined to one driver handle.
#pragma once

#include <uv.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <string>

#include "host/driver/driver_library.h"
#include "host/socket/frame_assembler.h"
#include "host/socket/limits.h"
#include "host/socket/outbox.h"
#include "host/socket/reply_pump.h"

namespace valmere::host {

// Purpose: carries a client's bytes to its own driver handle, frame by frame; its ReplyPump carries
// the driver's frames back. When the client has sent its last byte, the service is asked to end the
// session, so that what was asked before is still answered. A client that exceeds a limit is
// closed, and the operator is told.
// Owner: the server. Close first; destroy it once `closed` was called.
// Threads: the loop's; `pump_event` is called on the pump's thread.
// Errors: none; a failure closes it, with a message on standard error where it is no client's
// doing.
class ClientBridge {
 public:
  struct Events {
    std::function<void()> pump_event;  // HandlePumpEvent must follow, on the loop's thread
    std::function<void()> closed;      // nothing refers to the bridge any more
  };
  // What all bridges of a server share; it outlives them.
  struct Environment {
    uv_loop_t& loop;
    const DriverLibrary& driver;
    const Limits& limits;
    std::span<unsigned char> scratch;  // where bytes are read to, for the length of a call
  };

  // Takes `socket` over, which must not block; when it throws, the socket is still the caller's.
  ClientBridge(const Environment& environment, int socket, Events events);
  ~ClientBridge();
  ClientBridge(const ClientBridge&) = delete;
  ClientBridge& operator=(const ClientBridge&) = delete;

  // Acts on what has changed with the pump and its outbox.
  void HandlePumpEvent();
  // Goes on as if the client had sent its last byte: what the socket holds now is still taken, what
  // was asked is answered, and then the bridge closes.
  void Finish();
  // Ends handle and socket without waiting for the pump's thread to be gone.
  void BeginClose();
  // Ends all and leads to `closed`.
  void Close();

 private:
  static void OnPoll(uv_poll_t* poll, int status, int events);
  template <void (ClientBridge::*act)()>
  static void OnTimer(uv_timer_t* timer);
  static void OnHandleClosed(uv_handle_t* handle);
  template <class Action>
  void CloseOnError(Action action);

  void ReadOnce();
  bool ReadRest();
  void DrainAndClose();
  bool Forward(std::span<const unsigned char> bytes);
  bool WriteToDriver(std::span<const unsigned char> piece);
  void UpdateFrameTimer(bool begun);
  void ClientFinished();
  void CheckPump();
  void SendWaiting();
  void UpdateSending();
  void UpdatePoll();
  void FrameOverdue();
  void CheckUnread();
  void CloseFor(const std::string& cause);

  const DriverLibrary& driver_;
  const Limits& limits_;
  const int socket_;
  const std::uint32_t handle_;
  const std::span<unsigned char> scratch_;
  const Events events_;
  FrameAssembler assembler_;
  uv_poll_t poll_{};
  uv_timer_t frame_timer_{};   // runs while a frame is begun and not complete
  uv_timer_t unread_timer_{};  // runs while something waits for the client
  int open_handles_ = 0;       // the loop's, of the three above
  int polled_ = 0;             // what the poll handle asks for
  bool reading_ = true;        // the client may still send
  bool sending_ = false;       // something waits for the socket to take it
  bool session_ended_ = false;
  bool close_begun_ = false;
  bool closing_ = false;
  Outbox outbox_;
  std::unique_ptr<ReplyPump> pump_;  // from the first bytes that the driver got
};

}  // namespace valmere::host
