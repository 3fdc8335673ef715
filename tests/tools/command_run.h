// One command run within the test, without a connection and without a process of its own.
#pragma once

#include <CLI/CLI.hpp>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <optional>
#include <string>
#include <vector>

#include "tools/invocation.h"

namespace valmere::test {

struct CommandOutcome {
  int code = 0;
  std::string output;
  std::string errors;  // what the failure says
};

inline std::string ReadStream(std::FILE* file) {
  std::rewind(file);
  std::string text;
  for (int byte = std::fgetc(file); byte != EOF; byte = std::fgetc(file)) {
    text += static_cast<char>(byte);
  }
  return text;
}

// Adds the command by `add` and runs the command line; a usage error has the code 2.
inline CommandOutcome RunCommand(void (*add)(CLI::App&, tools::Invocation&),
                                 std::vector<std::string> words, tools::OutputStyle style = {}) {
  CLI::App app;
  tools::Invocation invocation;
  add(app, invocation);
  try {
    app.parse(std::vector<std::string>(words.rbegin(), words.rend()));
  } catch (const CLI::ParseError& error) {
    return {tools::kExitUsage, "", error.what()};
  }
  std::FILE* file = std::tmpfile();
  tools::Output out(file, std::move(style));
  const std::optional<tools::Failure> failure = invocation.run(out);
  out.Flush();
  const std::string output = ReadStream(file);
  std::fclose(file);
  if (!failure) return {0, output, ""};
  return {failure->code, output, failure->text};
}

inline std::string BytesOf(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

inline void WriteBytes(const std::string& path, const std::string& bytes) {
  std::ofstream(path, std::ios::binary) << bytes;
}

}  // namespace valmere::test
