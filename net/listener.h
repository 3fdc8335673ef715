// Where connections come from.
#pragma once

#include <memory>

#include "net/connection.h"

namespace valmere {

// Purpose: waits for peers and yields a connection to each.
// Owner: shared; the acceptor that serves it opens and closes it.
// Threads: Accept blocks its caller; Close comes from any thread and ends it.
// Errors: Open reports -1; Accept yields an empty pointer when it failed or the listener is closed,
// and throws std::bad_alloc where there is no memory for the connection.
class Listener {
 public:
  Listener() = default;
  virtual ~Listener() = default;
  Listener(const Listener&) = delete;
  Listener& operator=(const Listener&) = delete;

  virtual std::shared_ptr<Connection> Accept() = 0;
  // 0, or -1. A closed listener can be opened again once its accepts have returned.
  virtual int Open() = 0;
  // May be called again.
  virtual void Close() = 0;
};

}  // namespace valmere
