// The thread that gets out what clients have left unread.
#pragma once

#include <atomic>
#include <chrono>
#include <memory>
#include <unordered_map>

#include "client/mutex.h"
#include "host/system/small_thread.h"
#include "platform/posix/descriptor.h"

namespace valmere::host {

class ClientStream;

// Purpose: sends what waits for clients when their sockets take it, and has those closed that leave
// something unread for too long. One thread for all of them, which sleeps while nothing waits.
// Owner: the server. It holds a stream for as long as something waits for it.
// Threads: Add and time from any; the rest on the owner's.
// Errors: the constructor throws std::system_error. A stream for which there is no memory is
// closed.
class UnreadWatch {
 public:
  // Streams are looked at often enough for a limit of that time.
  explicit UnreadWatch(std::chrono::milliseconds limit);
  ~UnreadWatch();
  UnreadWatch(const UnreadWatch&) = delete;
  UnreadWatch& operator=(const UnreadWatch&) = delete;

  // Something waits for the stream. May be called again while it does.
  void Add(const std::shared_ptr<ClientStream>& stream) noexcept EXCLUDES(lock_);
  // A clock that goes on only while something waits and this program runs.
  std::chrono::milliseconds time() const {
    return std::chrono::milliseconds(time_.load(std::memory_order_relaxed));
  }

 private:
  using Stream = std::shared_ptr<ClientStream>;
  using Streams = std::unordered_map<int, Stream>;  // by descriptor

  bool Watch(const Stream& stream) EXCLUDES(lock_);
  void Run();
  bool Idle() const EXCLUDES(lock_);
  void CountTime(std::chrono::steady_clock::duration passed);
  void Serve(int descriptor) EXCLUDES(lock_);
  void Forget(const Stream& stream) EXCLUDES(lock_);
  void CheckAges() EXCLUDES(lock_);

  const std::chrono::milliseconds tick_;
  const platform::Descriptor wake_;
  const platform::Descriptor poll_;
  std::atomic<std::chrono::milliseconds::rep> time_{0};
  std::atomic<bool> ending_{false};
  // The thread's own.
  std::chrono::steady_clock::duration exact_time_{0};
  std::chrono::milliseconds next_check_{0};
  mutable client::Mutex lock_;
  Streams waiting_ GUARDED_BY(lock_);
  SmallThread thread_;  // last: it uses all of the above
};

}  // namespace valmere::host
