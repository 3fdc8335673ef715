// A stream is forgotten when nothing waits for it, which is looked at under the lock that Add takes:
// what begins to wait before is seen, what begins after is added anew.
#include "host/socket/unread_watch.h"

#include <sys/epoll.h>
#include <sys/eventfd.h>

#include <algorithm>
#include <array>
#include <exception>
#include <vector>

#include "host/socket/client_stream.h"
#include "host/socket/epoll.h"

namespace valmere::host {
namespace {

using std::chrono::milliseconds;

constexpr char kWatchPurpose[] = "can't watch what clients leave unread";

}  // namespace

UnreadWatch::UnreadWatch(milliseconds limit)
    : tick_(std::clamp<milliseconds>(limit / 8, milliseconds(5), milliseconds(500))),
      wake_(MakeWakeEvent(kWatchPurpose)),
      poll_(MakeEpoll(wake_.get(), kWatchPurpose)),
      thread_([this] { Run(); }) {}

UnreadWatch::~UnreadWatch() {
  ending_.store(true);
  eventfd_write(wake_.get(), 1);
}

void UnreadWatch::Add(const Stream& stream) noexcept {
  try {
    if (Watch(stream)) return;
  } catch (const std::exception&) {
    // No memory to remember it: what waits would wait for ever.
  }
  stream->Abandon();
}

// The first one wakes the thread, which counts the time from there on.
bool UnreadWatch::Watch(const Stream& stream) {
  const int descriptor = stream->descriptor();
  bool first = false;
  {
    const client::MutexLock hold(lock_);
    if (ending_.load()) return false;
    first = waiting_.empty();
    if (!waiting_.emplace(descriptor, stream).second) return true;
    if (!AddToEpoll(poll_.get(), descriptor, EPOLLOUT)) {
      waiting_.erase(descriptor);
      return false;
    }
  }
  if (first) eventfd_write(wake_.get(), 1);
  return true;
}

void UnreadWatch::Run() {
  std::array<epoll_event, 64> events;
  auto counted = std::chrono::steady_clock::now();
  while (!ending_.load()) {
    const bool idle = Idle();
    const int count = epoll_wait(poll_.get(), events.data(), static_cast<int>(events.size()),
                                 idle ? -1 : static_cast<int>(tick_.count()));
    const auto now = std::chrono::steady_clock::now();
    if (!idle) CountTime(now - counted);
    counted = now;
    for (int i = 0; i < count; ++i) {
      const int descriptor = events[static_cast<std::size_t>(i)].data.fd;
      eventfd_t wakes = 0;
      if (descriptor == wake_.get())
        eventfd_read(wake_.get(), &wakes);
      else
        Serve(descriptor);
    }
    try {
      CheckAges();
    } catch (const std::exception&) {
      // No memory for their list: they are looked at again.
    }
  }
}

bool UnreadWatch::Idle() const {
  const client::MutexLock hold(lock_);
  return waiting_.empty();
}

// A stop of the whole program does not count. The time that clients took that read does: otherwise
// they would hold up the clock for one that does not.
void UnreadWatch::CountTime(std::chrono::steady_clock::duration passed) {
  exact_time_ += std::min<std::chrono::steady_clock::duration>(passed, 2 * tick_);
  time_.store(std::chrono::duration_cast<milliseconds>(exact_time_).count(),
              std::memory_order_relaxed);
}

void UnreadWatch::Serve(int descriptor) {
  Stream stream;
  {
    const client::MutexLock hold(lock_);
    const auto place = waiting_.find(descriptor);
    if (place != waiting_.end()) stream = place->second;
  }
  if (stream && !stream->SendWaiting()) Forget(stream);
}

void UnreadWatch::Forget(const Stream& stream) {
  const client::MutexLock hold(lock_);
  if (stream->HasWaiting()) return;
  RemoveFromEpoll(poll_.get(), stream->descriptor());
  waiting_.erase(stream->descriptor());
}

void UnreadWatch::CheckAges() {
  if (time() < next_check_) return;
  next_check_ = time() + tick_;
  std::vector<Stream> overdue;
  {
    const client::MutexLock hold(lock_);
    for (const auto& [descriptor, stream] : waiting_)
      if (stream->IsOverdue(time() - tick_)) overdue.push_back(stream);
  }
  for (const Stream& stream : overdue) {
    stream->CloseOverdue();
    Forget(stream);
  }
}

}  // namespace valmere::host
