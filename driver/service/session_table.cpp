// Sessions are closed under the lock and destroyed outside it: the last holder of one may be a read
// on another thread.
#include "driver/service/session_table.h"

#include <utility>

namespace valmere {

DriverSessionTable::DriverSessionTable(std::shared_ptr<StreamSink> streams)
    : streams_(std::move(streams)) {}

// A service may be replaced while handles are open; their readers must not wait for ever.
DriverSessionTable::~DriverSessionTable() {
  CloseAll();
}

std::uint32_t DriverSessionTable::Open() {
  const ScopedLock hold(lock_);
  const std::uint32_t handle = ++last_handle_;
  sessions_.emplace(handle, std::make_shared<DriverSession>(streams_));
  return handle;
}

std::shared_ptr<DriverSession> DriverSessionTable::Find(std::uint32_t handle) const {
  const ScopedLock hold(lock_);
  const auto place = sessions_.find(handle);
  return place != sessions_.end() ? place->second : nullptr;
}

bool DriverSessionTable::Close(std::uint32_t handle) {
  std::shared_ptr<DriverSession> closed;
  const ScopedLock hold(lock_);
  const auto place = sessions_.find(handle);
  if (place == sessions_.end()) return false;
  place->second->Close();
  closed = std::move(place->second);
  sessions_.erase(place);
  return true;
}

// The lock is held only to take the map: a blocked read that looked its session up under the lock
// may still be on its way out. The sessions are closed without it.
void DriverSessionTable::CloseAll() {
  Sessions closing;
  {
    const ScopedLock hold(lock_);
    closing.swap(sessions_);
  }
  for (const auto& [handle, session] : closing)
    session->Close();
}

}  // namespace valmere
