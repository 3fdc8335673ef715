#include "tests/tools/command_run.h"

#include <CLI/CLI.hpp>

#include <cstdio>
#include <fstream>
#include <iterator>
#include <optional>
#include <utility>

namespace valmere::test {
namespace {

std::string ReadStream(std::FILE* file) {
  std::rewind(file);
  std::string text;
  for (int byte = std::fgetc(file); byte != EOF; byte = std::fgetc(file)) {
    text += static_cast<char>(byte);
  }
  return text;
}

}  // namespace

CommandOutcome RunCommand(void (*add)(CLI::App&, tools::Invocation&),
                          std::vector<std::string> words, tools::OutputOptions options) {
  CLI::App app;
  tools::Invocation invocation;
  add(app, invocation);
  try {
    app.parse(std::vector<std::string>(words.rbegin(), words.rend()));
  } catch (const CLI::ParseError& error) {
    return {tools::kExitUsage, "", error.what()};
  }
  std::FILE* file = std::tmpfile();
  tools::Output out(file, std::move(options));
  const std::optional<tools::Failure> failure = invocation.run(out);
  out.Flush();
  const std::string output = ReadStream(file);
  std::fclose(file);
  if (!failure) return {0, output, ""};
  return {failure->code, output, failure->text};
}

std::string BytesOf(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

void WriteBytes(const std::string& path, const std::string& bytes) {
  std::ofstream(path, std::ios::binary) << bytes;
}

}  // namespace valmere::test
