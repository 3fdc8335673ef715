// How a parse that takes long is told to let go.
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

// Purpose: names the flag that stops a parse, if there is one.
// Owner: the call of the parser; the flag outlives it.
// Threads: the parse looks; any thread raises the flag, and nobody takes it down meanwhile.
// Errors: Look throws ParseStopped.
class ParseStop {
 public:
  // So much text is gone through between two looks: a fraction of a millisecond's work at a desk, a
  // few milliseconds' on the slowest device.
  static constexpr std::size_t kBytesBetweenLooks = std::size_t{16} * 1024;
  // So many values are moved.
  static constexpr std::size_t kValuesBetweenLooks = 1024;

  ParseStop() = default;  // never
  explicit ParseStop(const std::atomic<bool>& flag) : flag_(&flag) {}

  bool asked() const { return flag_ != nullptr && flag_->load(std::memory_order_relaxed); }
  void Look() const {
    if (asked()) throw ParseStopped();
  }

 private:
  const std::atomic<bool>* flag_ = nullptr;
};

}  // namespace valmere
