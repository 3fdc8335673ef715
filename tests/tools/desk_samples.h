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

// The programs that are tested.
std::string CommandProgram();
std::string ServiceProgram();

// The command, with time for a busy machine.
std::unique_ptr<Subprocess> StartCommand(const std::vector<std::string>& arguments,
                                         const std::vector<std::string>& environment);
Outcome Finish(Subprocess& process);

}  // namespace valmere::test
