// What valmered is told on its command line.
#pragma once

#include <optional>
#include <string>

namespace valmere::host {

struct Options {
  std::string root;     // the device root, absolute; made if it was missing
  std::string socket;   // where clients connect
  std::string library;  // the driver library
};

enum ExitCode : int {
  kExitOk = 0,
  kExitFailure = 1,
  kExitUsage = 2,
  kExitSocketInUse = 3,
};

// Reads the command line. Nothing when the program has to end with `exit_code` at once: after
// "--help" or "--version", or on a usage error, which has been reported. Throws std::runtime_error
// when the root cannot be made or no driver library is found.
std::optional<Options> ReadOptions(int argc, const char* const* argv, int& exit_code);

}  // namespace valmere::host
