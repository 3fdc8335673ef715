// Uses the C library's streams: unlike those of C++, standard input is fresh again for the next
// command of an interactive session once its flags are cleared, and they tell an end from a
// failure.
#include "tools/process/input.h"

#include <cerrno>
#include <cstring>
#include <utility>

namespace valmere::tools {

Failure UnreadableInput(const std::string& path) {
  if (errno == EINTR) return {kExitInterrupted, "interrupted"};
  const std::string name = path == "-" ? "standard input" : path;
  return {kExitRefused, "cannot read " + name + ": " + std::strerror(errno)};
}

std::variant<InputFile, Failure> OpenInput(const std::string& path) {
  InputFile file(path == "-" ? stdin : std::fopen(path.c_str(), "rb"));
  if (!file) return UnreadableInput(path);
  return file;
}

std::variant<std::string, Failure> ReadInput(const std::string& path, std::size_t most) {
  auto input = OpenInput(path);
  if (Failure* failure = std::get_if<Failure>(&input)) return std::move(*failure);
  const InputFile file = std::get<InputFile>(std::move(input));
  std::string text;
  char buffer[65536];
  std::size_t count = 0;
  do {  // not on behind an end: a terminal would have to give it twice
    count = std::fread(buffer, 1, sizeof buffer, file.get());
    text.append(buffer, count);
  } while (count == sizeof buffer && text.size() <= most);
  if (std::ferror(file.get()) != 0) return UnreadableInput(path);
  return text;
}

}  // namespace valmere::tools
