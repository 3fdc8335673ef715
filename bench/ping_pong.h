// The peer of everything that wakes another thread and is woken by it: two threads and one flag.
#pragma once

#include <condition_variable>
#include <mutex>
#include <thread>

namespace valmere::bench {

// Answers every Trip from a thread of its own.
class PingPong {
 public:
  PingPong() : echo_([this] { Echo(); }) {}
  ~PingPong() {
    Turn(State::kEnd);
    echo_.join();
  }

  // There and back.
  void Trip() {
    Turn(State::kPing);
    std::unique_lock<std::mutex> hold(mutex_);
    changed_.wait(hold, [this] { return state_ == State::kPong; });
  }

 private:
  enum class State { kPong, kPing, kEnd };

  void Turn(State state) {
    {
      const std::lock_guard<std::mutex> hold(mutex_);
      state_ = state;
    }
    changed_.notify_all();
  }

  void Echo() {
    for (;;) {
      {
        std::unique_lock<std::mutex> hold(mutex_);
        changed_.wait(hold, [this] { return state_ != State::kPong; });
        if (state_ == State::kEnd) return;
        state_ = State::kPong;
      }
      changed_.notify_all();
    }
  }

  std::mutex mutex_;
  std::condition_variable changed_;
  State state_ = State::kPong;
  std::thread echo_;
};

}  // namespace valmere::bench
