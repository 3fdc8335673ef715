// A program on a terminal of its own.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

namespace valmere::test {

// Purpose: runs a program on a pseudo-terminal, types for it and reads its screen's bytes.
// Owner: a test.
// Threads: one.
// Errors: a step that takes longer than kPatience fails the test; the destructor ends the program.
class PseudoTerminal {
 public:
  // `environment` holds NAME=VALUE texts that replace the test's own.
  PseudoTerminal(const std::vector<std::string>& command,
                 const std::vector<std::string>& environment);
  ~PseudoTerminal();
  PseudoTerminal(const PseudoTerminal&) = delete;
  PseudoTerminal& operator=(const PseudoTerminal&) = delete;

  void Type(const std::string& keys) const;
  // Waits until `text` has been shown since the last text that was waited for; all that came
  // before it. Fails the test when it does not come.
  std::string Await(const std::string& text);
  void Resize(unsigned short columns) const;
  void Signal(int number) const;
  // Waits for its end: the exit code, or minus the signal that ended it.
  int Wait();

 private:
  bool ReadMore();

  pid_t process_ = -1;
  int terminal_ = -1;
  std::string shown_;
};

}  // namespace valmere::test
