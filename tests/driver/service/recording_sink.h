// A sink that keeps what it is given.
#pragma once

#include <memory>
#include <utility>
#include <vector>

#include "driver/sync/lock.h"
#include "net/stream_sink.h"

namespace valmere::test {

// Purpose: stands in for the service behind a session.
// Owner: shared by the test and the sessions.
// Threads: any.
// Errors: none.
class RecordingSink : public StreamSink {
 public:
  void AddStream(std::shared_ptr<Connection> stream) override {
    const ScopedLock hold(lock_);
    streams_.push_back(std::move(stream));
  }
  std::vector<std::shared_ptr<Connection>> streams() const {
    const ScopedLock hold(lock_);
    return streams_;
  }

 private:
  mutable Lock lock_;
  std::vector<std::shared_ptr<Connection>> streams_ GUARDED_BY(lock_);
};

}  // namespace valmere::test
