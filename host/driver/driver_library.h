// The driver library, loaded the way a device manager loads it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

#include "client/driver_transport.h"
#include "driver/prn.h"

namespace valmere::host {

// Purpose: the seven entry points of a driver library, the only way in which the host uses it.
// Owner: the program; every bridge must be gone before it.
// Threads: Open, Close, Read and Write from any; Init and Deinit alone.
// Errors: the constructor throws std::runtime_error when the library does not load or lacks an
// entry point; calls as driver/prn.h says. The library stays loaded to the end of the process.
class DriverLibrary {
 public:
  explicit DriverLibrary(const std::string& path);
  DriverLibrary(const DriverLibrary&) = delete;
  DriverLibrary& operator=(const DriverLibrary&) = delete;

  void Init() { context_ = init_(0); }
  void Deinit() const { deinit_(context_); }
  // What a client in this process needs; it opens a handle of its own.
  client::DriverEntryPoints entry_points() const { return {open_, close_, read_, write_}; }
  std::uint32_t context() const { return context_; }
  std::uint32_t Open() const { return open_(context_, 0, 0); }
  bool Close(std::uint32_t handle) const { return close_(handle) != 0; }
  // Says nothing of how much came: the driver always reports the whole count.
  void Read(std::uint32_t handle, void* buffer, std::size_t count) const {
    read_(handle, buffer, static_cast<std::uint32_t>(count));
  }
  // True when the driver took every byte.
  bool Write(std::uint32_t handle, std::span<const unsigned char> bytes) const {
    return write_(handle, bytes.data(), static_cast<std::uint32_t>(bytes.size())) ==
           static_cast<std::int64_t>(bytes.size());
  }

 private:
  decltype(&PRN_Init) init_;
  decltype(&PRN_Deinit) deinit_;
  decltype(&PRN_Open) open_;
  decltype(&PRN_Close) close_;
  decltype(&PRN_Read) read_;
  decltype(&PRN_Write) write_;
  decltype(&PRN_IOControl) io_control_;
  std::uint32_t context_ = 0;
};

}  // namespace valmere::host
