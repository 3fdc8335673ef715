// The thread that carries what the driver says to one client.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <thread>

#include "host/driver_library.h"

namespace valmere::host {

// Purpose: reads whole frames from a driver handle, which blocks, and sends each to a socket.
// Owner: the connection. It ends by itself when the driver ends the session or the client is gone;
// its destructor joins, so before it the handle must be closed and the socket shut down.
// Threads: its own runs everything; `ended` is called on it, once, as the last thing.
// Errors: the constructor throws std::system_error when no thread can be started.
class ReplyPump {
 public:
  ReplyPump(const DriverLibrary& driver, std::uint32_t handle, int socket,
            std::function<void()> ended);
  ~ReplyPump() { thread_.join(); }
  ReplyPump(const ReplyPump&) = delete;
  ReplyPump& operator=(const ReplyPump&) = delete;

 private:
  void Run(const std::function<void()>& ended);
  void Pump();
  bool ReadFrame();
  bool SendFrame() const;
  void MakeRoom(std::size_t bytes);
  void ShrinkRoom();

  const DriverLibrary& driver_;
  const std::uint32_t handle_;
  const int socket_;
  // Used by the thread alone. Not a vector: that would clear the room before each read fills it.
  std::unique_ptr<unsigned char[]> frame_;
  std::size_t room_ = 0;
  std::size_t frame_bytes_ = 0;
  std::thread thread_;  // last: it uses all of the above
};

}  // namespace valmere::host
