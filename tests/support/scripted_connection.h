// A connection whose reads follow a script and whose writes are kept.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <deque>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "net/connection.h"
#include "net/shared_frame.h"
#include "platform/kernel.h"

namespace valmere::test {

// Reads give the pieces in order; no read gives bytes of two pieces. What a read leaves of a piece
// is given by the next. After the last piece reads give the end result, or wait until more is
// delivered or the connection is closed, when it holds open. Any thread may call anything.
class ScriptedConnection final : public Connection {
 public:
  explicit ScriptedConnection(std::vector<std::string> pieces = {})
      : pieces_(pieces.begin(), pieces.end()) {}

  void Deliver(std::string piece) {
    {
      const platform::ScopedLock hold(lock_);
      pieces_.push_back(std::move(piece));
    }
    changed_.Release();
  }
  // What reads give after the last piece.
  void EndWith(int result) {
    const platform::ScopedLock hold(lock_);
    end_result_ = result;
  }
  // Reads after the last piece wait.
  void HoldOpen() {
    const platform::ScopedLock hold(lock_);
    hold_open_ = true;
  }
  // Writes give this result; what they were given is kept all the same.
  void GiveToWrites(int result) {
    const platform::ScopedLock hold(lock_);
    write_result_ = result;
    write_result_is_set_ = true;
  }

  // Shared frames that are written are held as well, until they are taken.
  void KeepFrames() {
    const platform::ScopedLock hold(lock_);
    keeps_frames_ = true;
  }
  std::vector<SharedFrame> TakeFrames() {
    const platform::ScopedLock hold(lock_);
    return std::exchange(frames_, {});
  }

  // What others send finds no room, until there is some.
  void LeaveNoRoom() {
    const platform::ScopedLock hold(lock_);
    has_room_ = false;
  }
  void MakeRoom() {
    {
      const platform::ScopedLock hold(lock_);
      has_room_ = true;
    }
    room_.Release();
  }
  // How often room was waited for.
  int waits() const {
    const platform::ScopedLock hold(lock_);
    return waits_;
  }
  // Before it is used: gives it an account of so many bytes.
  void SetMostMemory(std::size_t bytes) { account_.emplace(bytes); }

  int Read(void* buffer, int length) override {
    {
      const platform::ScopedLock hold(lock_);
      reads_.push_back(length);
    }
    for (;;) {
      {
        const platform::ScopedLock hold(lock_);
        if (closed_) return kDrained;
        if (!pieces_.empty()) return Take(buffer, length);
        if (!hold_open_) return end_result_;
      }
      changed_.Wait();
    }
  }
  int Write(const void* buffer, int length) override {
    const platform::ScopedLock hold(lock_);
    writes_.emplace_back(static_cast<const char*>(buffer), static_cast<std::size_t>(length));
    return write_result_is_set_ ? write_result_ : length;
  }
  int WriteShared(const SharedFrame& frame, EventFlags::PendingWake& /*wake*/) override {
    {
      const platform::ScopedLock hold(lock_);
      if (keeps_frames_) frames_.push_back(frame);
    }
    return Write(frame->data(), static_cast<int>(frame->size()));
  }
  int WriteForOther(const SharedFrame& frame, EventFlags::PendingWake& wake) override {
    {
      const platform::ScopedLock hold(lock_);
      if (!has_room_ && !closed_) return kNoRoom;
    }
    return WriteShared(frame, wake);
  }
  bool AwaitRoom(platform::Ticks deadline) override {
    {
      const platform::ScopedLock hold(lock_);
      ++waits_;
      if (has_room_ || closed_) return true;
    }
    return room_.WaitUntil(deadline);
  }
  void Close() override {
    {
      const platform::ScopedLock hold(lock_);
      closed_ = true;
    }
    changed_.Release();
    room_.Release();
  }
  bool IsOpen() const override {
    const platform::ScopedLock hold(lock_);
    return !closed_;
  }

  ClientAccount* account() override { return account_ ? &*account_ : nullptr; }
  void ExplainEnd(std::string_view cause) override {
    const platform::ScopedLock hold(lock_);
    causes_.emplace_back(cause);
  }

  // Why the service ends it, in order.
  std::vector<std::string> causes() const {
    const platform::ScopedLock hold(lock_);
    return causes_;
  }
  // The length that each read asked for, in order.
  std::vector<int> reads() const {
    const platform::ScopedLock hold(lock_);
    return reads_;
  }
  // What each write was given, in order.
  std::vector<std::string> writes() const {
    const platform::ScopedLock hold(lock_);
    return writes_;
  }
  // The writes so far, which are forgotten.
  std::vector<std::string> TakeWrites() {
    const platform::ScopedLock hold(lock_);
    return std::exchange(writes_, {});
  }

 private:
  int Take(void* buffer, int length) REQUIRES(lock_) {
    std::string& piece = pieces_.front();
    const std::size_t count = std::min(piece.size(), static_cast<std::size_t>(length));
    if (count > 0) std::memcpy(buffer, piece.data(), count);
    piece.erase(0, count);
    if (piece.empty()) pieces_.pop_front();
    return static_cast<int>(count);
  }

  mutable platform::Lock lock_;
  platform::Semaphore changed_;
  platform::Semaphore room_;
  std::deque<std::string> pieces_ GUARDED_BY(lock_);
  int end_result_ GUARDED_BY(lock_) = kGone;
  bool hold_open_ GUARDED_BY(lock_) = false;
  bool closed_ GUARDED_BY(lock_) = false;
  int write_result_ GUARDED_BY(lock_) = 0;
  bool write_result_is_set_ GUARDED_BY(lock_) = false;
  std::vector<int> reads_ GUARDED_BY(lock_);
  std::vector<std::string> writes_ GUARDED_BY(lock_);
  bool has_room_ GUARDED_BY(lock_) = true;
  int waits_ GUARDED_BY(lock_) = 0;
  bool keeps_frames_ GUARDED_BY(lock_) = false;
  std::vector<SharedFrame> frames_ GUARDED_BY(lock_);
  std::vector<std::string> causes_ GUARDED_BY(lock_);
  std::optional<ClientAccount> account_;
};

}  // namespace valmere::test
