// A list of chunks, each a header and its bytes in one allocation. A pipe that is used for one
// request and one reply at a time lives on a single chunk that comes and goes as the spare.
//
// What always holds of a buffer while its lock is free:
// (1) In every chunk read_position <= fill_position <= capacity.
// (2) Every chunk in the list has a byte to read: one that has been read to its end is taken out at
//     once (Drain), and a new one is filled in the call that adds it (Append). So the buffer is
//     empty exactly when first_ is null, and then last_ is null too.
// (3) Bytes are added behind last_ and taken from first_: they are read in the order of the writes.
// (4) A write adds all of its bytes or, where memory runs out, none (Append).
// (5) kData is up exactly while a byte is queued: the write that finds the buffer empty raises it,
//     the read that empties it takes it down, both under the lock.
// (6) kClosed is up exactly when closed_ is set; neither is ever taken back, and nothing is queued
//     after it (Write).
// (7) A reader waits without the lock, and looks again under it (Read). Readers are woken after the
//     lock: the flags' pending wake is destroyed by the caller (WriteDeferringWake).
// (8) There is at most one spare chunk; it is of the ordinary size, and empty (PopChunk).
#include "driver/service/loopback_pipe.h"

#include <algorithm>
#include <cstring>
#include <new>
#include <utility>

namespace valmere {
namespace {

constexpr std::uint32_t kData = 1;
constexpr std::uint32_t kClosed = 2;

// Small writes share a chunk of this size; a chunk above it is never kept as the spare.
constexpr std::size_t kOrdinaryChunkBytes = 1024;

}  // namespace

struct PipeBuffer::Chunk {
  ChunkHandle next;
  std::size_t capacity = 0;
  std::size_t read_position = 0;
  std::size_t fill_position = 0;

  std::byte* bytes() { return reinterpret_cast<std::byte*>(this + 1); }
  std::size_t free_space() const { return capacity - fill_position; }
  std::size_t readable() const { return fill_position - read_position; }
  void Fill(const std::byte* source, std::size_t count) {
    std::memcpy(bytes() + fill_position, source, count);
    fill_position += count;
  }
};

void PipeBuffer::ChunkDeleter::operator()(Chunk* chunk) const {
  chunk->~Chunk();
  ::operator delete(chunk);
}

PipeBuffer::ChunkHandle PipeBuffer::MakeChunk(std::size_t capacity) {
  void* memory = ::operator new(sizeof(Chunk) + capacity);
  ChunkHandle chunk(new (memory) Chunk);
  chunk->capacity = capacity;
  return chunk;
}

PipeBuffer::PipeBuffer() : signal_(EventFlags::AutoClear::kNo) {}

// Chunk by chunk: a long queue must not be released by recursion.
PipeBuffer::~PipeBuffer() {
  while (first_)
    first_ = std::move(first_->next);
}

void PipeBuffer::PushChunk(std::size_t count) {
  ChunkHandle chunk = spare_ && spare_->capacity >= count
                          ? std::move(spare_)
                          : MakeChunk(std::max(count, kOrdinaryChunkBytes));
  Chunk* pushed = chunk.get();
  (last_ != nullptr ? last_->next : first_) = std::move(chunk);
  last_ = pushed;
}

void PipeBuffer::PopChunk() {
  ChunkHandle drained = std::move(first_);
  first_ = std::move(drained->next);
  if (!first_) last_ = nullptr;
  if (drained->capacity == kOrdinaryChunkBytes) {
    drained->read_position = drained->fill_position = 0;
    spare_ = std::move(drained);
  }
}

// All room is made before the first byte is copied: a write that finds no memory leaves no half of
// itself behind.
void PipeBuffer::Append(const std::byte* bytes, std::size_t count) {
  Chunk* const tail = last_;
  const std::size_t fits = tail != nullptr ? std::min(count, tail->free_space()) : 0;
  if (fits < count) PushChunk(count - fits);
  if (fits > 0) tail->Fill(bytes, fits);
  if (fits < count) last_->Fill(bytes + fits, count - fits);
}

int PipeBuffer::Drain(std::byte* buffer, std::size_t length) {
  std::size_t copied = 0;
  while (first_ && copied < length) {
    const std::size_t part = std::min(length - copied, first_->readable());
    std::memcpy(buffer + copied, first_->bytes() + first_->read_position, part);
    first_->read_position += part;
    copied += part;
    if (first_->readable() == 0) PopChunk();
  }
  return static_cast<int>(copied);
}

int PipeBuffer::Take(void* buffer, int length) {
  if (!first_) return closed_ ? kDrained : 0;
  if (length < 1) return 0;
  const int copied = Drain(static_cast<std::byte*>(buffer), static_cast<std::size_t>(length));
  if (!first_) signal_.Clear(kData);
  return copied;
}

int PipeBuffer::Read(void* buffer, int length) {
  {
    // The later fields of a frame find their bytes here and need not ask the signal.
    const ScopedLock hold(lock_);
    if (first_ || closed_) return Take(buffer, length);
  }
  signal_.Wait(kData | kClosed);
  const ScopedLock hold(lock_);
  return Take(buffer, length);
}

int PipeBuffer::Write(const void* buffer, int length) {
  EventFlags::PendingWake wake;
  return WriteDeferringWake(buffer, length, wake);
}

int PipeBuffer::WriteDeferringWake(const void* buffer, int length, EventFlags::PendingWake& wake) {
  if (length < 1) return 0;
  const ScopedLock hold(lock_);
  if (closed_) return length;
  const bool was_empty = !first_;
  Append(static_cast<const std::byte*>(buffer), static_cast<std::size_t>(length));
  if (was_empty) wake = signal_.Raise(kData);
  return length;
}

void PipeBuffer::Close() {
  EventFlags::PendingWake wake = CloseDeferringWake();
}

EventFlags::PendingWake PipeBuffer::CloseDeferringWake() {
  const ScopedLock hold(lock_);
  closed_ = true;
  return signal_.Raise(kClosed);
}

bool PipeBuffer::IsOpen() const {
  const ScopedLock hold(lock_);
  return !closed_;
}

PipeEndpoint::PipeEndpoint(std::shared_ptr<PipeBuffer> write_target,
                           std::shared_ptr<PipeBuffer> read_source)
    : write_target_(std::move(write_target)), read_source_(std::move(read_source)) {}

// Both buffers are closed before a reader is woken: a thread that learns from one that the pipe is
// closed must find the other closed as well, or what it writes would stay queued with no reader.
void PipeEndpoint::Close() {
  EventFlags::PendingWake wake_reader = write_target_->CloseDeferringWake();
  EventFlags::PendingWake wake_self = read_source_->CloseDeferringWake();
}

LoopbackPipe::LoopbackPipe() {
  auto inbound = std::make_shared<PipeBuffer>();
  auto outbound = std::make_shared<PipeBuffer>();
  driver_end_ = std::make_shared<PipeEndpoint>(inbound, outbound);
  service_end_ = std::make_shared<PipeEndpoint>(outbound, inbound);
}

}  // namespace valmere
