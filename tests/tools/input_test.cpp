#include "tools/process/input.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <utility>

#include "tests/host/subprocess.h"
#include "tests/tools/command_run.h"
#include "tools/commands/commands.h"

namespace valmere::test {
namespace {

using ::testing::StartsWith;
using tools::ReadInput;

tools::Failure FailureOfInput(const std::string& path) {
  auto input = ReadInput(path);
  EXPECT_TRUE(std::holds_alternative<tools::Failure>(input));
  return std::get<tools::Failure>(std::move(input));
}

// Puts a file in the place of standard input, and that back at the end.
class StandardInput {
 public:
  explicit StandardInput(const std::string& path) : before_(dup(STDIN_FILENO)) {
    const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    EXPECT_EQ(dup2(file, STDIN_FILENO), STDIN_FILENO);
    close(file);
    std::clearerr(stdin);
  }
  ~StandardInput() {
    dup2(before_, STDIN_FILENO);
    close(before_);
    std::clearerr(stdin);
  }
  StandardInput(const StandardInput&) = delete;
  StandardInput& operator=(const StandardInput&) = delete;

 private:
  const int before_;
};

// Interrupts what waits, time after time.
class Alarms {
 public:
  Alarms() {
    struct sigaction action {};
    action.sa_handler = [](int) {};
    sigemptyset(&action.sa_mask);
    sigaction(SIGALRM, &action, &before_);
    const itimerval often{{0, 10'000}, {0, 10'000}};
    setitimer(ITIMER_REAL, &often, nullptr);
  }
  ~Alarms() {
    const itimerval never{};
    setitimer(ITIMER_REAL, &never, nullptr);
    sigaction(SIGALRM, &before_, nullptr);
  }
  Alarms(const Alarms&) = delete;
  Alarms& operator=(const Alarms&) = delete;

 private:
  struct sigaction before_ {};
};

TEST(Input, IsReadAsItIs) {
  const TemporaryFolder folder;
  const std::string bytes = std::string(100'000, 'x') + std::string("\0\r\n\xff", 4);
  WriteBytes(folder.Path("file"), bytes);
  EXPECT_TRUE(std::get<std::string>(ReadInput(folder.Path("file"))) == bytes);
}

TEST(Input, IsFreshForEachCommandThatReadsStandardInput) {
  const TemporaryFolder folder;
  for (const char* text : {"first", "second"}) {
    WriteBytes(folder.Path("file"), text);
    const StandardInput input(folder.Path("file"));
    EXPECT_EQ(std::get<std::string>(ReadInput("-")), text);
  }
}

TEST(Input, NamesWhatCannotBeRead) {
  const TemporaryFolder folder;
  const std::string missing = folder.Path("missing");
  EXPECT_EQ(FailureOfInput(missing).text, "cannot read " + missing + ": No such file or directory");
  EXPECT_EQ(FailureOfInput(folder.Path("")).code, tools::kExitRefused);
  const StandardInput input(folder.Path(""));
  EXPECT_THAT(FailureOfInput("-").text, StartsWith("cannot read standard input: "));
}

TEST(Input, IsDroppedWhenItIsInterrupted) {
  const TemporaryFolder folder;
  const std::string path = folder.Path("pipe");
  ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
  const int writer = open(path.c_str(), O_RDWR | O_CLOEXEC);
  ASSERT_EQ(write(writer, "half", 4), 4);
  const Alarms alarms;
  EXPECT_EQ(FailureOfInput(path).code, tools::kExitInterrupted);
  for (const char* way : {"encode", "decode"}) {
    ASSERT_EQ(write(writer, "half", 4), 4);
    const CommandOutcome outcome = RunCommand(tools::AddFrameCommand, {"frame", way, path});
    EXPECT_EQ(outcome.code, tools::kExitInterrupted) << way;
  }
  close(writer);
}

}  // namespace
}  // namespace valmere::test
