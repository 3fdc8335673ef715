// Mutates the lines of a property file and seals them again, nearly always: a file with a wrong
// trailer is refused before its first line is looked at.
#include <algorithm>
#include <string>

#include "tests/fuzz/fuzz_target.h"
#include "tests/fuzz/sealed_file.h"

extern "C" std::size_t LLVMFuzzerMutate(std::uint8_t* data, std::size_t size, std::size_t max_size);

extern "C" std::size_t LLVMFuzzerCustomMutator(std::uint8_t* data, std::size_t size,
                                               std::size_t max_size, unsigned int seed) {
  constexpr unsigned kUnsealedOneOf = 32;
  constexpr std::size_t kTrailer = valmere::kPropertyFileTrailer;
  if (max_size <= kTrailer || seed % kUnsealedOneOf == 0)
    return LLVMFuzzerMutate(data, size, max_size);
  const std::size_t body_size =
      LLVMFuzzerMutate(data, size - std::min(size, kTrailer), max_size - kTrailer);
  const std::string trailer =
      valmere::test::TrailerOf({reinterpret_cast<const char*>(data), body_size});
  std::copy(trailer.begin(), trailer.end(), data + body_size);
  return body_size + kTrailer;
}
