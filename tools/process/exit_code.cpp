// One table from what went wrong in the client library to what a script sees.
#include "tools/process/exit_code.h"

namespace valmere::tools {
namespace {

ExitCode CodeOf(client::ErrorKind kind) {
  switch (kind) {
    case client::ErrorKind::kCannotConnect:
      return kExitCannotConnect;
    case client::ErrorKind::kTimeout:
      return kExitTimeout;
    case client::ErrorKind::kConnectionLost:
      return kExitConnectionLost;
    case client::ErrorKind::kInterrupted:
      return kExitInterrupted;
    case client::ErrorKind::kInvalid:
    case client::ErrorKind::kProtocol:
      break;
  }
  return kExitRefused;
}

}  // namespace

Failure FailureOf(const client::Error& error) {
  return {CodeOf(error.kind), error.text};
}

}  // namespace valmere::tools
