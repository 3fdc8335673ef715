// Reading the property file again at the operator's request.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "client/deadline.h"
#include "client/mutex.h"
#include "host/driver/driver.h"
#include "host/system/small_thread.h"
#include "host/values/kept_properties.h"

namespace valmere::host {

// Purpose: has the service load its property file, one load after the other. Requests that come
// while it loads lead to one more load, however many they are. All loads share a handle and a
// thread, which are there from the first request on.
// Owner: the server. The driver must outlive it, and not be ended before it. Only WaitUntilIdle
// waits for a load that is under way.
// Threads: RequestLoad and WaitUntilIdle by one at a time, the loop's; its own does the rest.
// Errors: none; what went wrong is reported on standard error. The result of a load is in the
// service's own log.
class PropertyLoader {
 public:
  // Takes the names of the files that are about to be loaded.
  using BeforeLoad = std::function<void(const KeptProperties& files)>;

  // `before_load`, if there is one, is called on its own thread before each load.
  PropertyLoader(const Driver& driver, BeforeLoad before_load)
      : driver_(driver), before_load_(std::move(before_load)) {}
  ~PropertyLoader();
  PropertyLoader(const PropertyLoader&) = delete;
  PropertyLoader& operator=(const PropertyLoader&) = delete;

  // Returns at once.
  void RequestLoad() noexcept;
  // Waits until all that was requested has been loaded, or the deadline passes.
  void WaitUntilIdle(client::Deadline deadline);

 private:
  void Run();
  bool WaitForRequest();
  void Load();
  bool Send(std::uint32_t handle, const std::string& frame) const;
  void CallBeforeLoad(std::uint32_t handle) const;
  // The handle, opened if there is none; nothing when the loader is being destroyed.
  std::optional<std::uint32_t> Handle();
  void GiveUp(std::string_view cause);
  // False when there was none.
  bool CloseHandle();

  const Driver& driver_;
  const BeforeLoad before_load_;

  client::Mutex lock_;
  std::condition_variable changed_;
  std::condition_variable idle_;
  bool requested_ GUARDED_BY(lock_) = false;
  bool loading_ GUARDED_BY(lock_) = false;
  bool ending_ GUARDED_BY(lock_) = false;
  std::optional<std::uint32_t> handle_ GUARDED_BY(lock_);

  std::unique_ptr<SmallThread> thread_;  // last: it uses all of the above
};

}  // namespace valmere::host
