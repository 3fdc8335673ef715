// Frames over a driver handle in the same process.
#pragma once

#include <cstdint>
#include <memory>

#include "client/transport.h"

namespace valmere::client {

// The entry points of the driver library that a client needs, as the program has found them.
struct DriverEntryPoints {
  std::uint32_t (*open)(std::uint32_t device_context, std::uint32_t access,
                        std::uint32_t share_mode);
  std::uint32_t (*close)(std::uint32_t open_handle);
  std::uint32_t (*read)(std::uint32_t open_handle, void* buffer, std::uint32_t count);
  std::int32_t (*write)(std::uint32_t open_handle, const void* buffer, std::uint32_t count);
};

// Opens a handle of the driver and closes it with the transport, which must go before the driver is
// ended. A thread of its own waits for the driver, because a read there has no time-out; the first
// Send throws std::system_error when it can't start it. kCannotConnect when no service runs.
Result<std::unique_ptr<Transport>> OpenDriver(const DriverEntryPoints& driver,
                                              std::uint32_t device_context);

}  // namespace valmere::client
