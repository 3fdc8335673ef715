// A client's stream as the message layer sees it: many threads may write to it.
#pragma once

#include <atomic>
#include <memory>
#include <utility>

#include "driver/sync/lock.h"
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
  int WriteShared(const SharedFrame& frame, EventFlags::PendingWake& wake) override {
    const ScopedLock hold(write_lock_);
    return stream_->WriteShared(frame, wake);
  }
  int WriteForOther(const SharedFrame& frame, EventFlags::PendingWake& wake) override {
    const ScopedLock hold(write_lock_);
    return stream_->WriteForOther(frame, wake);
  }
  bool AwaitRoom(platform::Ticks deadline) override { return stream_->AwaitRoom(deadline); }
  bool ComesInPieces() const override { return stream_->ComesInPieces(); }
  void ExplainEnd(std::string_view cause) override { stream_->ExplainEnd(cause); }
  ClientAccount* account() override { return stream_->account(); }
  void Close() override {
    ended_ = true;
    stream_->Close();
  }
  bool IsOpen() const override { return stream_->IsOpen(); }
  // Whether the service has closed it. What a client wrote before it closed its own end still
  // counts.
  bool ended() const { return ended_; }
  // The same, for long work that checks it now and then.
  const std::atomic<bool>& ended_flag() const { return ended_; }

  // Whether properties have been published on it; if not, its end costs nothing.
  bool has_published() const { return has_published_; }
  void set_has_published() { has_published_ = true; }

 private:
  const std::shared_ptr<Connection> stream_;
  std::atomic<bool> ended_{false};
  std::atomic<bool> has_published_{false};
  Lock write_lock_;  // held for the length of a write; nothing is taken under it but the stream's
                     // own
};

}  // namespace valmere
