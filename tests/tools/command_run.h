// One command run within the test, without a connection and without a process of its own.
#pragma once

#include <string>
#include <vector>

#include "tools/service/invocation.h"

namespace CLI {
class App;
}

namespace valmere::test {

struct CommandOutcome {
  int code = 0;
  std::string output;
  std::string errors;  // what the failure says
};

// Adds the command by `add` and runs the command line; a usage error has the code 2.
CommandOutcome RunCommand(void (*add)(CLI::App&, tools::Invocation&),
                          std::vector<std::string> words, tools::OutputOptions options = {});

std::string BytesOf(const std::string& path);
void WriteBytes(const std::string& path, const std::string& bytes);

}  // namespace valmere::test
