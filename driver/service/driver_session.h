// One open driver handle.
#pragma once

#include <atomic>
#include <memory>

#include "driver/service/loopback_pipe.h"
#include "net/connection.h"
#include "net/stream_sink.h"

namespace valmere {

// Purpose: the driver's side of a pipe whose other end is served as any client's stream is, from
// the first byte that is written.
// Owner: the session table; a read or write that runs holds it as well.
// Threads: any.
// Errors: a read after close with nothing queued gives kDrained; a write is never refused. What the
// sink throws comes out of the first write; the session is closed then.
class DriverSession : public Connection {
 public:
  explicit DriverSession(std::shared_ptr<StreamSink> streams);

  int Read(void* buffer, int length) override;
  int Write(const void* buffer, int length) override;
  void Close() override;
  bool IsOpen() const override;

 private:
  LoopbackPipe pipe_;
  std::atomic<bool> first_write_pending_{true};
  // Taken by the thread that clears the flag above, so that a session that outlives the service for
  // the length of a read keeps nothing of it alive.
  std::shared_ptr<StreamSink> streams_;
};

}  // namespace valmere
