// Another program under the control of a test.
#pragma once

#include <poll.h>
#include <sys/types.h>

#include <chrono>
#include <string>
#include <vector>

namespace valmere::test {

// Long enough for a loaded machine under a sanitizer; a test that works never waits for it.
inline constexpr std::chrono::seconds kPatience{60};

// A folder of its own for each test, removed with all that is in it.
class TemporaryFolder {
 public:
  TemporaryFolder();
  ~TemporaryFolder();
  TemporaryFolder(const TemporaryFolder&) = delete;
  TemporaryFolder& operator=(const TemporaryFolder&) = delete;

  std::string Path(const std::string& name) const { return path_ + "/" + name; }

 private:
  std::string path_;
};

// Purpose: runs a program, reads what it prints, and leaves none behind.
// Owner: a test.
// Threads: one.
// Errors: a step that takes longer than kPatience fails the test and kills the program.
class Subprocess {
 public:
  // `environment` holds NAME=VALUE texts that are added to the test's own; `passed` becomes
  // descriptors 3, 4, ... of the program.
  explicit Subprocess(const std::vector<std::string>& command,
                      const std::vector<std::string>& environment = {},
                      const std::vector<int>& passed = {});
  ~Subprocess();
  Subprocess(const Subprocess&) = delete;
  Subprocess& operator=(const Subprocess&) = delete;

  // The next line that it prints, without its end; empty when it prints no more.
  std::string ReadLine() { return TakeLine(output_text_); }
  std::string ReadErrorLine() { return TakeLine(errors_text_); }
  pid_t process() const { return process_; }
  void Signal(int number);
  // Waits for its end: the exit code, or minus the signal that ended it.
  int Wait();
  // What it printed and no ReadLine took; after Wait.
  const std::string& output() const { return output_text_; }
  const std::string& errors() const { return errors_text_; }

 private:
  std::string TakeLine(std::string& text);
  bool ReadMore();
  bool AwaitText(pollfd* pipes);

  pid_t process_ = -1;
  int signalled_ = 0;  // the signal that was sent last
  int output_ = -1;
  int errors_ = -1;
  std::string output_text_;
  std::string errors_text_;
};

}  // namespace valmere::test
