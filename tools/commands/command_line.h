// The command line of valmere.
#pragma once

#include <string>
#include <vector>

#include "tools/service/invocation.h"

namespace CLI {
class App;
}

namespace valmere::tools {

// Adds all options and commands to `app`. Both live as long as the command line is used; parsing
// sets what is in `invocation`, and parsing again needs a new pair.
void BuildCommandLine(CLI::App& app, Invocation& invocation);

// What the program was started with, without its name: answers a shell's completion, runs a
// command, or is interactive when there is none and a terminal at hand. The exit code; what went
// wrong has been reported.
int Start(const std::vector<std::string>& words);

// Reads and runs one command line in the same way, but is never interactive.
int RunCommandLine(std::vector<std::string> words);

// Reports the failure, if there is one, and gives the exit code. Output whose reader has
// gone is no failure.
int Conclude(const std::optional<Failure>& failure, Output& out);

}  // namespace valmere::tools
