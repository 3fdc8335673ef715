// The open driver handles.
#pragma once

#include <cstdint>
#include <memory>
#include <unordered_map>

#include "driver/service/driver_session.h"
#include "driver/sync/lock.h"

namespace valmere {

// Purpose: maps handles to sessions. Handles are 1, 2, 3, ... in order of opening, never reused.
// Owner: the service.
// Threads: any; CloseAll when no other call comes any more.
// Errors: an unknown handle gives an empty session or false.
class DriverSessionTable {
 public:
  explicit DriverSessionTable(std::shared_ptr<StreamSink> streams);
  ~DriverSessionTable();
  DriverSessionTable(const DriverSessionTable&) = delete;
  DriverSessionTable& operator=(const DriverSessionTable&) = delete;

  std::uint32_t Open() EXCLUDES(lock_);
  // The session works for as long as it is held, also after the handle has been closed.
  std::shared_ptr<DriverSession> Find(std::uint32_t handle) const EXCLUDES(lock_);
  bool Close(std::uint32_t handle) EXCLUDES(lock_);
  void CloseAll() EXCLUDES(lock_);

 private:
  using Sessions = std::unordered_map<std::uint32_t, std::shared_ptr<DriverSession>>;

  const std::shared_ptr<StreamSink> streams_;
  mutable Lock lock_;
  Sessions sessions_ GUARDED_BY(lock_);
  std::uint32_t last_handle_ GUARDED_BY(lock_) = 0;
};

}  // namespace valmere
