// A client's stream as the message layer sees it: many threads may write to it.
#pragma once

#include <memory>
#include <utility>

#include "driver/sync/shared_lock.h"
#include "net/connection.h"

namespace valmere {

// Purpose: keeps the writes of several threads on one stream apart: each Write is one piece.
// Owner: shared by the thread that serves the stream, the properties published on it and the
// subscriber entry; its address is the client's identity in the service.
// Threads: one reader; any number of writers; Close from any.
// Errors: those of the stream.
class ClientConnection : public Connection {
 public:
  explicit ClientConnection(std::shared_ptr<Connection> stream) : stream_(std::move(stream)) {}

  int Read(void* buffer, int length) override { return stream_->Read(buffer, length); }
  int Write(const void* buffer, int length) override {
    EventFlags::PendingWake wake;
    return WriteDeferringWake(buffer, length, wake);
  }
  int WriteDeferringWake(const void* buffer, int length, EventFlags::PendingWake& wake) override {
    const ScopedLock hold(write_lock_);
    return stream_->WriteDeferringWake(buffer, length, wake);
  }
  void Close() override { stream_->Close(); }
  bool IsOpen() const override { return stream_->IsOpen(); }

 private:
  const std::shared_ptr<Connection> stream_;
  Lock write_lock_;  // held for the length of a write; nothing is taken under it but the stream's
                     // own
};

}  // namespace valmere
