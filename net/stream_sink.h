// Where accepted connections go.
#pragma once

#include <memory>

#include "net/connection.h"

namespace valmere {

// Purpose: takes connections and serves each.
// Owner: shared with the components that accept connections.
// Threads: any thread may call, at any time.
// Errors: an exception means that the connection was not taken.
class StreamSink {
 public:
  virtual ~StreamSink() = default;
  // Returns without waiting for the connection's service.
  virtual void AddStream(std::shared_ptr<Connection> stream) = 0;
};

}  // namespace valmere
