// What tests of the whole command share.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "client/property.h"
#include "tests/host/subprocess.h"

namespace valmere::test {

inline const client::Property kSpeed{"G1", "Motion", "P1", "Speed", "42", client::kSuccessful,
                                     "C1", "Head"};

// Of one run of the command.
struct Outcome {
  int code;
  std::string output;
  std::string errors;
};

// The command, with time for a busy machine.
inline std::unique_ptr<Subprocess> StartCommand(const std::vector<std::string>& arguments,
                                                const std::vector<std::string>& environment) {
  std::vector<std::string> command{VALMERE, "--timeout", "60"};
  command.insert(command.end(), arguments.begin(), arguments.end());
  return std::make_unique<Subprocess>(command, environment);
}
inline Outcome Finish(Subprocess& process) {
  const int code = process.Wait();
  return {code, process.output(), process.errors()};
}

}  // namespace valmere::test
