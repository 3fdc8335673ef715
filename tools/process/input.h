// What a command reads beside its arguments.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>
#include <variant>

#include "tools/process/exit_code.h"

namespace valmere::tools {

// Standard input stays open.
struct InputCloser {
  void operator()(std::FILE* file) const {
    if (file != stdin) std::fclose(file);
  }
};
using InputFile = std::unique_ptr<std::FILE, InputCloser>;

// A file to read from; standard input for "-".
std::variant<InputFile, Failure> OpenInput(const std::string& path);

// Why the input could not be read, by what errno says: an interruption has a status of its own.
Failure UnreadableInput(const std::string& path);

// All of a file, or of standard input for "-"; of one that has more than `most` bytes little more
// than that. The failure names what could not be read; what had come until then is dropped, so that
// no command acts on half of it.
std::variant<std::string, Failure> ReadInput(const std::string& path, std::size_t most = SIZE_MAX);

}  // namespace valmere::tools
