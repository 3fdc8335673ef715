// By the C library's streams: unlike those of C++, standard input is fresh again for the next command
// of an interactive session once its flags are cleared, and they tell an end from a failure.
#include "tools/input.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>

namespace valmere::tools {
namespace {

struct OpenedFileCloser {
  void operator()(std::FILE* file) const { std::fclose(file); }
};

Failure UnreadableInput(const std::string& path) {
  if (errno == EINTR) return {kExitInterrupted, "interrupted"};
  const std::string name = path == "-" ? "standard input" : path;
  return {kExitRefused, "cannot read " + name + ": " + std::strerror(errno)};
}

}  // namespace

std::variant<std::string, Failure> ReadInput(const std::string& path) {
  std::unique_ptr<std::FILE, OpenedFileCloser> opened;
  if (path != "-") {
    opened.reset(std::fopen(path.c_str(), "rb"));
    if (!opened) return UnreadableInput(path);
  }
  std::FILE* const file = opened ? opened.get() : stdin;
  std::string text;
  char buffer[65536];
  std::size_t count = 0;
  do {  // not on behind an end: a terminal would have to give it twice
    count = std::fread(buffer, 1, sizeof buffer, file);
    text.append(buffer, count);
  } while (count == sizeof buffer);
  if (std::ferror(file) != 0) return UnreadableInput(path);
  return text;
}

}  // namespace valmere::tools
