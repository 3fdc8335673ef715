// What every fuzz target is made of. A target is one function of bytes; libFuzzer calls it in
// programs of the preset `fuzz`, replay.cpp in those of every other.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string_view>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace valmere::test {

// Ends the process where `holds` is false, as a sanitizer does that finds something.
inline void Require(bool holds, const char* what) {
  if (holds) return;
  std::fprintf(stderr, "does not hold: %s\n", what);
  std::abort();
}

// Purpose: the choices that an input makes, taken from its front; zeros once it has ended.
// Owner, threads: the call of the target.
// Errors: none.
class Choices {
 public:
  Choices(const std::uint8_t* data, std::size_t size)
      : left_(reinterpret_cast<const char*>(data), size) {}

  std::uint8_t Byte() {
    if (left_.empty()) return 0;
    const auto byte = static_cast<std::uint8_t>(left_.front());
    left_.remove_prefix(1);
    return byte;
  }
  // The next bytes, as many of `count` as there are.
  std::string_view Bytes(std::size_t count) {
    const std::string_view taken = left_.substr(0, count);
    left_.remove_prefix(taken.size());
    return taken;
  }
  std::string_view Rest() { return Bytes(left_.size()); }

 private:
  std::string_view left_;
};

}  // namespace valmere::test
