// Where components log what went wrong.
#pragma once

#include <string_view>

namespace valmere {

// Purpose: takes one message for the log.
// Owner: shared by all components that log.
// Threads: any; a call never waits for the file.
// Errors: never reach the caller.
class LogSink {
 public:
  virtual ~LogSink() = default;
  // The message as it stands, without a line end. Texts from outside must have been quoted.
  virtual void Log(std::string_view message) = 0;
};

}  // namespace valmere
