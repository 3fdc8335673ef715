// The command line of valmered.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "host/socket/limits.h"

namespace valmere::host {

struct Options {
  std::string root;        // the device root
  bool init_root = false;  // an empty one gets a skeleton
  std::string socket;      // where clients connect, unless a socket is inherited
  std::string listen_tcp;  // "ADDRESS:PORT" where clients connect as well; empty for none
  std::uint64_t log_bytes = std::uint64_t{16} << 20;  // of the service's log file
  Limits limits;
};

enum ExitCode : int {
  kExitOk = 0,
  kExitFailure = 1,
  kExitUsage = 2,
  kExitSocketInUse = 3,
  kExitRootInUse = 4,
  kExitRootUnusable = 5,
};

// Reads the command line. Nothing when the program has to end with `exit_code` at once: after
// "--help" or "--version", or on a usage error, which has been reported.
std::optional<Options> ReadOptions(int argc, const char* const* argv, int& exit_code);

}  // namespace valmere::host
