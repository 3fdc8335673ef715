// What tests of the whole command share.
#pragma once

#include <string>

#include "client/property.h"

namespace valmere::test {

inline const client::Property kSpeed{"G1", "Motion", "P1", "Speed", "42", client::kSuccessful,
                                     "C1", "Head"};

// Of one run of the command.
struct Outcome {
  int code;
  std::string output;
  std::string errors;
};

}  // namespace valmere::test
