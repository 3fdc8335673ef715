// The driver, called the way a device manager calls it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>

#include "client/driver_transport.h"
#include "driver/prn.h"
#include "net/listener.h"

namespace valmere::host {

// Purpose: the entry points of the driver, which this program is linked with, and the one thing that
// a device manager does not do: to name where else clients come from.
// Owner: the program.
// Threads: Open, Close, Read and Write from any; the rest on the owner's.
// Errors: calls as driver/prn.h says.
class Driver {
 public:
  Driver() = default;
  Driver(const Driver&) = delete;
  Driver& operator=(const Driver&) = delete;

  void Init() { context_ = PRN_Init(0); }
  void Deinit() const { PRN_Deinit(context_); }
  // The service serves the clients of the listener until it ends. False when there is no service.
  static bool Serve(std::shared_ptr<Listener> listener);

  // What a client in this process needs; it opens a handle of its own.
  static client::DriverEntryPoints entry_points() {
    return {&PRN_Open, &PRN_Close, &PRN_Read, &PRN_Write};
  }
  std::uint32_t context() const { return context_; }
  std::uint32_t Open() const { return PRN_Open(context_, 0, 0); }
  static bool Close(std::uint32_t handle) { return PRN_Close(handle) != 0; }
  // Says nothing of how much came: the driver always reports the whole count.
  static void Read(std::uint32_t handle, void* buffer, std::size_t count) {
    PRN_Read(handle, buffer, static_cast<std::uint32_t>(count));
  }
  // True when the driver took every byte.
  static bool Write(std::uint32_t handle, std::span<const unsigned char> bytes) {
    return PRN_Write(handle, bytes.data(), static_cast<std::uint32_t>(bytes.size())) ==
           static_cast<std::int64_t>(bytes.size());
  }

 private:
  std::uint32_t context_ = 0;
};

}  // namespace valmere::host
