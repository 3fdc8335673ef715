// An in-memory duplex pipe: what an open driver handle has in place of a socket.
#pragma once

#include <atomic>
#include <cstddef>
#include <memory>

#include "driver/sync/event_flags.h"
#include "net/connection.h"

namespace valmere {

// Purpose: one direction of the pipe: a queue of bytes without a limit. Message boundaries are not
// kept: a read gives what is queued, up to what it asks for.
// Owner: shared by the two ends that write and read it.
// Threads: any; meant for one reader.
// Errors: Read gives kDrained once the buffer is closed and empty. Write is never refused; what is
// written after Close is dropped, and its count is full all the same. std::bad_alloc from Write.
class PipeBuffer : public Connection {
 public:
  PipeBuffer();
  ~PipeBuffer() override;

  // Waits for the first byte. 0 when another reader took what this one was woken for.
  int Read(void* buffer, int length) override;
  int Write(const void* buffer, int length) override;
  int WriteDeferringWake(const void* buffer, int length, EventFlags::PendingWake& wake) override;
  int WriteShared(const SharedFrame& frame, EventFlags::PendingWake& wake) override;
  void Close() override;
  // As Close; waiting readers are woken when the result is destroyed.
  EventFlags::PendingWake CloseDeferringWake();
  bool IsOpen() const override { return !closed_.load(); }

 private:
  struct Chunk;
  struct ChunkDeleter {
    void operator()(Chunk* chunk) const;
  };
  using ChunkHandle = std::unique_ptr<Chunk, ChunkDeleter>;
  // Releases chunks one by one: a long queue must not be released by recursion.
  struct ChunkList {
    ~ChunkList() {
      if (first) Release();
    }
    void Release();
    ChunkHandle first;
  };

  static ChunkHandle MakeChunk(std::size_t capacity);
  void Append(const std::byte* bytes, std::size_t count) REQUIRES(lock_);
  int Take(void* buffer, int length, ChunkList& spent) REQUIRES(lock_);
  int Drain(std::byte* buffer, std::size_t length, ChunkList& spent) REQUIRES(lock_);
  void PushChunk(ChunkHandle chunk) REQUIRES(lock_);
  ChunkHandle ChunkFor(std::size_t count) REQUIRES(lock_);
  void PopChunk(ChunkList& spent) REQUIRES(lock_);

  Lock lock_;
  std::atomic<bool> closed_{false};  // set under lock_; whether it is open is asked without
  ChunkList chunks_ GUARDED_BY(lock_);
  Chunk* last_ GUARDED_BY(lock_) = nullptr;
  // A drained chunk of ordinary size, kept for the next write.
  ChunkHandle spare_ GUARDED_BY(lock_);
  // Data queued, closed. Changed under lock_ alone, so that a lone reader is never woken for bytes
  // that an earlier read has taken.
  EventFlags signal_;
};

// Purpose: one end of the pipe: writes to one buffer, reads from the other.
// Owner: the LoopbackPipe; the service's end is also held by the thread that serves it.
// Threads, errors: those of PipeBuffer.
class PipeEndpoint : public Connection {
 public:
  PipeEndpoint(std::shared_ptr<PipeBuffer> write_target, std::shared_ptr<PipeBuffer> read_source);

  int Read(void* buffer, int length) override { return read_source_->Read(buffer, length); }
  int Write(const void* buffer, int length) override {
    return write_target_->Write(buffer, length);
  }
  int WriteDeferringWake(const void* buffer, int length, EventFlags::PendingWake& wake) override {
    return write_target_->WriteDeferringWake(buffer, length, wake);
  }
  int WriteShared(const SharedFrame& frame, EventFlags::PendingWake& wake) override {
    return write_target_->WriteShared(frame, wake);
  }
  void Close() override;
  bool IsOpen() const override { return write_target_->IsOpen(); }

 private:
  const std::shared_ptr<PipeBuffer> write_target_;
  const std::shared_ptr<PipeBuffer> read_source_;
};

// Purpose: the two ends, over an inbound buffer (requests) and an outbound one (replies).
// Owner: the driver session.
// Threads: the handles don't change after construction.
// Errors: std::bad_alloc from the constructor.
class LoopbackPipe {
 public:
  LoopbackPipe();

  const std::shared_ptr<PipeEndpoint>& driver_end() const { return driver_end_; }
  const std::shared_ptr<PipeEndpoint>& service_end() const { return service_end_; }

 private:
  std::shared_ptr<PipeEndpoint> driver_end_;
  std::shared_ptr<PipeEndpoint> service_end_;
};

}  // namespace valmere
