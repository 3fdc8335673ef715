// The listener of a service without a network port.
#pragma once

#include "driver/sync/event_flags.h"
#include "net/listener.h"

namespace valmere {

// Purpose: takes the place of a listener where no port is wanted; never yields a connection.
// Owner: shared; as Listener. No Accept may be running when it dies.
// Threads: as Listener.
// Errors: none; Open always returns 0.
class NullListener final : public Listener {
 public:
  NullListener() = default;
  ~NullListener() override;

  // Waits until the listener is closed, then gives an empty pointer.
  std::shared_ptr<Connection> Accept() override;
  int Open() override;
  void Close() override;

 private:
  // Up while the listener is closed, so that a Close that comes before the wait is seen by it.
  EventFlags closed_{EventFlags::AutoClear::kNo};
};

}  // namespace valmere
