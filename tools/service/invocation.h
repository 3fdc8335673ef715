// What a command line asks for: the options that hold for every command, and what to run.
#pragma once

#include <chrono>
#include <functional>
#include <optional>
#include <string>

#include "tools/output/output.h"
#include "tools/process/exit_code.h"

namespace valmere::tools {

struct GlobalOptions : OutputOptions {
  std::string socket;
  std::chrono::milliseconds timeout{5000};  // for connecting and answering together
};

struct Invocation {
  GlobalOptions global;
  // Set by the command that was named. It reads `global` when it runs, because options may follow
  // the command's name.
  std::function<std::optional<Failure>(Output&)> run;
};

}  // namespace valmere::tools
