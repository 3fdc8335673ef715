// What valmere is told on its command line.
#pragma once

#include <chrono>
#include <cstddef>
#include <optional>
#include <string>
#include <vector>

namespace valmere::tools {

struct Options {
  enum class Command { kList, kGet, kSet, kPublish, kWatch };

  std::string socket;
  std::chrono::milliseconds timeout{5000};  // for connecting and answering together
  Command command = Command::kList;
  std::vector<std::string> names;        // get
  std::size_t count = 0;                 // watch: so many lines, 0 for no end
  std::string name;                      // set
  std::string value;                     // set
  std::vector<std::string> assignments;  // publish: NAME=VALUE
  bool hold = false;                     // publish
  std::string component = "valmere";     // publish: of names that give none
  std::string component_guid;            // publish: empty for the name-based one
  std::string group = "Desk";            // publish: of names that give none
};

// Reads the command line. Nothing when the program has to end with `exit_code` at once: after
// "--help" or "--version", or on a usage error, which has been reported.
std::optional<Options> ReadOptions(int argc, const char* const* argv, int& exit_code);

}  // namespace valmere::tools
