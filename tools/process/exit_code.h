// How valmere tells a script what became of a command.
#pragma once

#include <string>

#include "client/result.h"

namespace valmere::tools {

enum ExitCode : int {
  kExitOk = 0,
  kExitRefused = 1,
  kExitUsage = 2,
  kExitCannotConnect = 3,
  kExitNoSuchProperty = 4,
  kExitBadValue = 5,
  kExitTimeout = 6,
  kExitConnectionLost = 7,
  kExitInterrupted = 130,
};

// Why a command ends before its time: what standard error is told, and the exit code.
struct Failure {
  ExitCode code;
  std::string text;
};

Failure FailureOf(const client::Error& error);

}  // namespace valmere::tools
