// A driver read reports its count whatever happened and leaves the buffer alone when the session
// has ended, so the identifier's room is cleared before each read: anything else than the
// identifier afterwards is the end. What waits for frames waits on a semaphore, the one means of
// waking a thread that a signal handler may use too.
#include "client/driver_transport.h"

#include <semaphore.h>

#include <atomic>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <deque>
#include <string>
#include <thread>
#include <utility>

#include "client/mutex.h"
#include "protocol/wire/message_frame.h"

namespace valmere::client {
namespace {

class DriverTransport final : public Transport {
 public:
  DriverTransport(const DriverEntryPoints& driver, std::uint32_t handle)
      : driver_(driver), handle_(handle) {
    sem_init(&arrived_, 0, 0);
  }
  ~DriverTransport() override {
    DriverTransport::Close();
    if (reader_.joinable()) reader_.join();
    sem_destroy(&arrived_);
  }

  Result<void> Send(std::string_view frame, Deadline deadline) override;
  Result<void> Receive(std::string& text, Deadline deadline) override;
  void Interrupt() noexcept override;
  void Close() override;

 private:
  void ReadFrames();
  bool ReadFrame(std::string& text) const;
  bool TakeFrame(std::string& text);
  bool WaitUntil(Deadline deadline);

  const DriverEntryPoints driver_;
  const std::uint32_t handle_;
  std::atomic<bool> closed_{false};

  sem_t arrived_;  // posted for each frame, for an interruption and for the end
  std::atomic<bool> interrupted_{false};
  std::atomic<bool> ended_{false};  // set behind the last frame
  Mutex lock_;
  std::deque<std::string> texts_ GUARDED_BY(lock_);
  std::thread reader_;  // from the first frame sent; the sending thread's
};

Error SessionLost() {
  return {ErrorKind::kConnectionLost, "connection lost: the service ended it"};
}

// The driver takes every byte at once, so there is nothing to wait for.
Result<void> DriverTransport::Send(std::string_view frame, Deadline) {
  if (closed_) return SessionLost();
  const auto count = static_cast<std::uint32_t>(frame.size());
  if (driver_.write(handle_, frame.data(), count) != static_cast<std::int64_t>(frame.size())) {
    Close();
    return SessionLost();
  }
  if (!reader_.joinable()) reader_ = std::thread([this] { ReadFrames(); });
  return {};
}

Result<void> DriverTransport::Receive(std::string& text, Deadline deadline) {
  for (;;) {
    if (closed_) return SessionLost();
    if (interrupted_.exchange(false)) return Error{ErrorKind::kInterrupted, "interrupted"};
    // Asked in this order: the end is set behind the last frame.
    const bool ended = ended_;
    if (TakeFrame(text)) return {};
    if (ended) return SessionLost();
    if (!WaitUntil(deadline)) return Error{ErrorKind::kTimeout, "time-out waiting for the service"};
  }
}

bool DriverTransport::TakeFrame(std::string& text) {
  const MutexLock hold(lock_);
  if (texts_.empty()) return false;
  text = std::move(texts_.front());
  texts_.pop_front();
  return true;
}

// True when something may have arrived.
bool DriverTransport::WaitUntil(Deadline deadline) {
  if (deadline.never()) return sem_wait(&arrived_) == 0 || errno == EINTR;
  const auto left = deadline.left();
  timespec end{};
  clock_gettime(CLOCK_MONOTONIC, &end);
  const auto nanoseconds = end.tv_nsec + left.count() % 1000 * 1'000'000;
  end.tv_sec += static_cast<std::time_t>(left.count() / 1000 + nanoseconds / 1'000'000'000);
  end.tv_nsec = static_cast<decltype(end.tv_nsec)>(nanoseconds % 1'000'000'000);
  return sem_clockwait(&arrived_, CLOCK_MONOTONIC, &end) == 0 || errno == EINTR;
}

void DriverTransport::Interrupt() noexcept {
  const int saved = errno;
  interrupted_ = true;
  sem_post(&arrived_);
  errno = saved;
}

void DriverTransport::Close() {
  if (closed_.exchange(true)) return;
  driver_.close(handle_);  // ends the read that waits
  sem_post(&arrived_);
}

void DriverTransport::ReadFrames() {
  std::string text;
  while (ReadFrame(text)) {
    {
      const MutexLock hold(lock_);
      texts_.push_back(std::move(text));
    }
    sem_post(&arrived_);
  }
  ended_ = true;
  sem_post(&arrived_);
}

bool DriverTransport::ReadFrame(std::string& text) const {
  unsigned char header[kFrameHeaderBytes] = {};
  constexpr std::size_t kIdentifierBytes = kStreamFormatIdentifier.size();
  driver_.read(handle_, header, kIdentifierBytes);
  if (std::memcmp(header, kStreamFormatIdentifier.data(), kIdentifierBytes) != 0) return false;
  driver_.read(handle_, header + kIdentifierBytes, kLengthFieldBytes);
  text.resize(DecodeLength(header + kIdentifierBytes));
  // A read of no bytes would wait for the frame after this one.
  if (!text.empty()) driver_.read(handle_, text.data(), static_cast<std::uint32_t>(text.size()));
  return true;
}

}  // namespace

Result<std::unique_ptr<Transport>> OpenDriver(const DriverEntryPoints& driver,
                                              std::uint32_t device_context) {
  const std::uint32_t handle = driver.open(device_context, 0, 0);
  if (handle == 0)
    return Error{ErrorKind::kCannotConnect, "cannot open the driver: no service runs there"};
  return std::unique_ptr<Transport>(std::make_unique<DriverTransport>(driver, handle));
}

}  // namespace valmere::client
