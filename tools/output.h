// What the user sees: data on standard output, messages on standard error.
#pragma once

#include <cstdio>
#include <string>
#include <string_view>

namespace valmere::tools {

// `text` with control characters as \n, \t, \r or \xHH, so that a value can't steer a terminal.
std::string EscapeControls(std::string_view text);

// Purpose: prints lines of data, escaped when a terminal shows them and as they are otherwise.
// Owner: main.
// Threads: one.
// Errors: failed() tells whether a line could not be written.
class Output {
 public:
  explicit Output(std::FILE* file);

  void Line(std::string_view text);
  // Makes what was printed visible now.
  void Flush() { failed_ |= std::fflush(file_) != 0; }
  bool failed() const { return failed_; }

 private:
  std::FILE* const file_;
  const bool terminal_;
  bool failed_ = false;
};

// "valmere: TEXT" on standard error.
void Complain(std::string_view text);

}  // namespace valmere::tools
