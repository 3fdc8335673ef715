// A file descriptor and the duty to close it.
#pragma once

#include <unistd.h>

#include <utility>

namespace valmere::platform {

// Owner: the file or socket. Threads: one at a time. Without a descriptor it is empty.
class Descriptor {
 public:
  Descriptor() = default;
  explicit Descriptor(int number) : number_(number) {}
  Descriptor(Descriptor&& other) noexcept : number_(std::exchange(other.number_, -1)) {}
  Descriptor& operator=(Descriptor&& other) noexcept {
    std::swap(number_, other.number_);
    return *this;
  }
  ~Descriptor() {
    // Not repeated on EINTR: Linux has given the number back by then.
    if (number_ >= 0) close(number_);
  }

  bool valid() const { return number_ >= 0; }
  int get() const { return number_; }
  // Hands the number over, and the duty with it.
  int Release() { return std::exchange(number_, -1); }

 private:
  int number_ = -1;
};

}  // namespace valmere::platform
