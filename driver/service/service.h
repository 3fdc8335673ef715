// The running system: makes every component, in order, and releases them in reverse.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "driver/service/session_table.h"
#include "driver/sync/task_queue.h"
#include "net/acceptor.h"
#include "net/network_startup.h"
#include "persist/log/log_facility.h"
#include "persist/settings/persistence.h"
#include "platform/files.h"
#include "protocol/stream/data_handler_manager.h"
#include "store/engine/property_engine.h"

namespace valmere {

// Where the service keeps its files.
struct StorePaths {
  platform::WidePathView property_file;
  platform::WidePathView override_file;
  platform::WidePathView log_file_name_file;
};

// Purpose: the root that everything hangs off.
// Owner: the entry points.
// Threads: made, completed and destroyed on the device manager's thread; sessions are opened, found
// and closed by any.
// Errors: std::bad_alloc, from the constructor also when the kernel has no thread for it.
class ValmereService {
 public:
  ValmereService(std::shared_ptr<platform::FileSystem> files, const StorePaths& paths,
                 const std::string& os_version, const std::string& os_build_number);
  // Ends what was made, also where the constructor above failed.
  ~ValmereService();
  ValmereService(const ValmereService&) = delete;
  ValmereService& operator=(const ValmereService&) = delete;

  // Both texts are handed over to the call.
  void PublishQtRuntimeVersion(std::string version, std::string build_number);
  void PublishQtCommonVersion(std::string version, std::string build_number);
  // All that belongs to the start has been published: what comes from here on is announced.
  void StartAnnouncing() { engine_->AnnounceFromNow(); }

  // Clients of the listener are served as those of a session are, until the service ends. None of
  // the entry points calls it: a device has no such clients. std::bad_alloc.
  void Serve(std::shared_ptr<Listener> listener);

  DriverSessionTable& sessions() { return *sessions_; }
  // As the session table's operations of the same purpose, with a line in the log.
  std::uint32_t OpenSession();
  bool CloseSession(std::uint32_t handle);
  void CloseAllSessions();

 private:
  // Without any component.
  explicit ValmereService(std::shared_ptr<platform::FileSystem> files);

  void OpenLog(const StorePaths& paths);
  std::shared_ptr<Connection> OpenOwnDevice();

  const std::shared_ptr<platform::FileSystem> files_;

  // In order of construction; ended by name and released in reverse: the service need not be the
  // last holder.
  std::shared_ptr<TaskQueue> tasks_;
  std::shared_ptr<NetworkStartup> network_;
  std::shared_ptr<Persistence> persistence_;
  std::shared_ptr<LogFacility> log_;
  std::shared_ptr<PropertyEngine> engine_;
  std::shared_ptr<DataHandlerManager> handlers_;
  std::shared_ptr<Acceptor> acceptor_;
  std::vector<std::shared_ptr<Acceptor>> more_acceptors_;  // those of Serve
  std::shared_ptr<DriverSessionTable> sessions_;
};

}  // namespace valmere
