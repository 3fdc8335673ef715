// The operator's wish that the property file be read again.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string_view>

#include "host/driver_library.h"
#include "host/small_thread.h"

namespace valmere::host {

// Purpose: has the service load its property file, one load after the other. Wishes that come while
// it loads lead to one load more, however many they are. All loads share a handle and a thread, which
// are there from the first wish on.
// Owner: the server. The driver must outlive it, and not be ended before it; a load that is under way
// is not waited for.
// Threads: Ask by one at a time, the loop's; its own does the rest.
// Errors: none; standard error is told what went wrong. What comes of a load is in the service's own
// log.
class PropertyLoader {
 public:
  explicit PropertyLoader(const DriverLibrary& driver) : driver_(driver) {}
  ~PropertyLoader();
  PropertyLoader(const PropertyLoader&) = delete;
  PropertyLoader& operator=(const PropertyLoader&) = delete;

  // Returns at once.
  void Ask() noexcept;

 private:
  void Run();
  bool AwaitWish();
  void Load();
  // The handle, opened if there is none; nothing when it is to end.
  std::optional<std::uint32_t> Handle();
  void GiveUp(std::string_view cause);
  // False when there is none any more.
  bool CloseHandle();

  const DriverLibrary& driver_;

  std::mutex lock_;
  std::condition_variable changed_;
  bool wanted_ = false;                  // guarded by lock_
  bool ending_ = false;                  // guarded by lock_
  std::optional<std::uint32_t> handle_;  // guarded by lock_

  std::unique_ptr<SmallThread> thread_;  // last: it uses all of the above
};

}  // namespace valmere::host
