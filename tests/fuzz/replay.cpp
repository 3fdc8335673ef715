// Runs one target, without a fuzzer, on every file of a folder: as it stands, and cut off at up to
// so many lengths.
#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <system_error>
#include <vector>

#include "tests/fuzz/fuzz_target.h"

namespace {

std::vector<std::filesystem::path> FilesIn(const char* folder) {
  std::vector<std::filesystem::path> files;
  std::error_code missing;
  for (const auto& entry : std::filesystem::directory_iterator(folder, missing))
    if (entry.is_regular_file()) files.push_back(entry.path());
  std::sort(files.begin(), files.end());
  return files;
}

std::vector<std::uint8_t> BytesOf(const std::filesystem::path& file) {
  std::ifstream stream(file, std::ios::binary);
  return {std::istreambuf_iterator<char>(stream), {}};
}

// A copy of just that size: a sanitizer sees what is read beyond it.
void Run(const std::vector<std::uint8_t>& input, std::size_t size) {
  const std::vector<std::uint8_t> exact(input.begin(),
                                        input.begin() + static_cast<std::ptrdiff_t>(size));
  LLVMFuzzerTestOneInput(exact.data(), exact.size());
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) {
    std::fprintf(stderr, "usage: %s CORPUS LENGTHS\n", argv[0]);
    return 2;
  }
  const auto files = FilesIn(argv[1]);
  if (files.empty()) {
    std::fprintf(stderr, "%s: no inputs\n", argv[1]);
    return 1;
  }
  const auto lengths = static_cast<std::size_t>(std::max(1, std::atoi(argv[2])));
  for (const auto& file : files) {
    std::printf("%s\n", file.filename().c_str());
    std::fflush(stdout);
    const std::vector<std::uint8_t> input = BytesOf(file);
    Run(input, input.size());
    const std::size_t step = std::max<std::size_t>(1, input.size() / lengths);
    for (std::size_t size = 0; size < input.size(); size += step)
      Run(input, size);
  }
  return 0;
}
