// valmere on a terminal without a command: one command a line.
#pragma once

#include <CLI/App.hpp>

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "tools/process/exit_code.h"
#include "tools/service/invocation.h"

namespace valmere::tools {

// Runs one command line, whose words are given without the program's name, reports what fails, and
// returns its exit code.
using RunLine = std::function<int(const std::vector<std::string>& words)>;

// Reads lines from the terminal that standard input is and runs each, until "exit", "quit" or the
// end of input. `app` is the command tree that completion follows; `global` says which service it
// asks. Meanwhile SIGINT drops the line, SIGTERM and SIGHUP end the program in order; while a
// command runs they are its business, except that SIGINT never ends the program. A Failure when the
// terminal can't be used; what became of the lines does not count.
std::optional<Failure> RunInteractive(const GlobalOptions& global, const CLI::App& app,
                                      const RunLine& run_line);

}  // namespace valmere::tools
