// How a long parse is stopped, and lets other threads go first in between.
#pragma once

#include <atomic>
#include <cstddef>
#include <exception>

namespace valmere {

// Ends a parse from within.
class ParseStopped : public std::exception {
 public:
  const char* what() const noexcept override { return "the parse was stopped"; }
};

// Purpose: names the flag that stops a parse, if there is one, and what the parse does between two
// pieces of its work.
// Owner: the call of the parser; the flag outlives it.
// Threads: the parse looks and pauses; any thread raises the flag, which stays up.
// Errors: Look and Pause throw ParseStopped.
class ParseStop {
 public:
  // That much text is read between two pauses: a fraction of a millisecond on a desktop machine, a
  // few milliseconds on the slowest device.
  static constexpr std::size_t kBytesBetweenPauses = std::size_t{16} * 1024;
  // That many values are moved, or tokens read, between two pauses.
  static constexpr std::size_t kValuesBetweenPauses = 1024;

  using PauseFunction = void (*)();

  ParseStop() = default;  // never
  explicit ParseStop(const std::atomic<bool>& flag) : flag_(&flag) {}
  // Either may be null.
  ParseStop(const std::atomic<bool>* flag, PauseFunction pause) : flag_(flag), pause_(pause) {}

  bool asked() const { return flag_ != nullptr && flag_->load(std::memory_order_relaxed); }
  void Look() const {
    if (asked()) throw ParseStopped();
  }
  void Pause() const {
    if (pause_ != nullptr) pause_();
    Look();
  }

 private:
  const std::atomic<bool>* flag_ = nullptr;
  PauseFunction pause_ = nullptr;
};

}  // namespace valmere
