// A list of chunks, each a header and its bytes in one allocation, or a header and the long frame
// whose bytes it stands for. A pipe that is used for one request and one reply at a time lives on a
// single chunk that comes and goes as the spare.
//
// What always holds of a buffer while its lock is free:
// (1) In every chunk read_position <= fill_position <= capacity.
// (2) Every chunk in the list has a byte to read: one that has been read to its end is taken out at
//     once (Drain), and a new one is filled in the call that adds it (Append). So the buffer is
//     empty exactly when chunks_ is, and then last_ is null.
// (3) Bytes are added behind last_ and taken from chunks_: they are read in the order of writing.
// (4) A write adds all of its bytes or, where memory runs out, none (Append).
// (5) kData is up exactly while a byte is queued: the write that finds the buffer empty raises it,
//     the read that empties it takes it down, both under the lock.
// (6) kClosed is up exactly when closed_ is set; neither is ever taken back, and nothing is queued
//     after it (Write).
// (7) A reader waits without the lock, and looks again under it (Read). Readers are woken after the
//     lock: the flags' pending wake is destroyed by the caller (WriteDeferringWake).
// (8) There is at most one spare chunk; it is of the ordinary size, and empty (PopChunk).
// (9) Nothing is freed under the lock: a frame may be the last hold on what others have lent.
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

// A shared frame above this size is kept instead of copied.
constexpr std::size_t kCopiedFrameBytes = std::size_t{16} * 1024;

}  // namespace

struct PipeBuffer::Chunk {
  ChunkHandle next;
  std::size_t capacity = 0;
  std::size_t read_position = 0;
  std::size_t fill_position = 0;
  SharedFrame frame;  // instead of bytes of its own

  std::byte* own_bytes() { return reinterpret_cast<std::byte*>(this + 1); }
  const std::byte* bytes() {
    return frame ? reinterpret_cast<const std::byte*>(frame->data()) : own_bytes();
  }
  std::size_t free_space() const { return capacity - fill_position; }
  std::size_t readable() const { return fill_position - read_position; }
  void Fill(const std::byte* source, std::size_t count) {
    std::memcpy(own_bytes() + fill_position, source, count);
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

PipeBuffer::~PipeBuffer() = default;

void PipeBuffer::ChunkList::Release() {
  while (first)
    first = std::move(first->next);
}

PipeBuffer::ChunkHandle PipeBuffer::ChunkFor(std::size_t count) {
  if (spare_ && spare_->capacity >= count) return std::move(spare_);
  return MakeChunk(std::max(count, kOrdinaryChunkBytes));
}

void PipeBuffer::PushChunk(ChunkHandle chunk) {
  Chunk* pushed = chunk.get();
  (last_ != nullptr ? last_->next : chunks_.first) = std::move(chunk);
  last_ = pushed;
}

void PipeBuffer::PopChunk(ChunkList& spent) {
  ChunkHandle drained = std::move(chunks_.first);
  chunks_.first = std::move(drained->next);
  if (!chunks_.first) last_ = nullptr;
  if (drained->capacity == kOrdinaryChunkBytes && !spare_) {
    drained->read_position = drained->fill_position = 0;
    spare_ = std::move(drained);
    return;
  }
  drained->next = std::move(spent.first);
  spent.first = std::move(drained);
}

// All room is made before the first byte is copied: a write that finds no memory leaves no half of
// itself behind.
void PipeBuffer::Append(const std::byte* bytes, std::size_t count) {
  Chunk* const tail = last_;
  const std::size_t fits = tail != nullptr ? std::min(count, tail->free_space()) : 0;
  if (fits < count) PushChunk(ChunkFor(count - fits));
  if (fits > 0) tail->Fill(bytes, fits);
  if (fits < count) last_->Fill(bytes + fits, count - fits);
}

int PipeBuffer::Drain(std::byte* buffer, std::size_t length, ChunkList& spent) {
  std::size_t copied = 0;
  while (chunks_.first && copied < length) {
    Chunk& chunk = *chunks_.first;
    const std::size_t part = std::min(length - copied, chunk.readable());
    std::memcpy(buffer + copied, chunk.bytes() + chunk.read_position, part);
    chunk.read_position += part;
    copied += part;
    if (chunk.readable() == 0) PopChunk(spent);
  }
  return static_cast<int>(copied);
}

int PipeBuffer::Take(void* buffer, int length, ChunkList& spent) {
  if (!chunks_.first) return closed_ ? kDrained : 0;
  if (length < 1) return 0;
  const int copied =
      Drain(static_cast<std::byte*>(buffer), static_cast<std::size_t>(length), spent);
  if (!chunks_.first) signal_.Clear(kData);
  return copied;
}

int PipeBuffer::Read(void* buffer, int length) {
  ChunkList spent;  // released after the lock
  {
    // The later fields of a frame find their bytes here and need not ask the signal.
    const ScopedLock hold(lock_);
    if (chunks_.first || closed_) return Take(buffer, length, spent);
  }
  signal_.Wait(kData | kClosed);
  const ScopedLock hold(lock_);
  return Take(buffer, length, spent);
}

int PipeBuffer::Write(const void* buffer, int length) {
  EventFlags::PendingWake wake;
  return WriteDeferringWake(buffer, length, wake);
}

int PipeBuffer::WriteDeferringWake(const void* buffer, int length, EventFlags::PendingWake& wake) {
  if (length < 1) return 0;
  const ScopedLock hold(lock_);
  if (closed_) return length;
  const bool was_empty = !chunks_.first;
  Append(static_cast<const std::byte*>(buffer), static_cast<std::size_t>(length));
  if (was_empty) wake = signal_.Raise(kData);
  return length;
}

int PipeBuffer::WriteShared(const SharedFrame& frame, EventFlags::PendingWake& wake) {
  const int length = static_cast<int>(frame->size());
  if (frame->size() <= kCopiedFrameBytes) return WriteDeferringWake(frame->data(), length, wake);
  ChunkHandle chunk = MakeChunk(0);
  chunk->frame = frame;
  chunk->capacity = chunk->fill_position = frame->size();
  const ScopedLock hold(lock_);
  if (closed_) return length;
  const bool was_empty = !chunks_.first;
  PushChunk(std::move(chunk));
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
