// valmered with the fake driver library, and clients that speak to it in raw bytes.
#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include "tests/host/subprocess.h"
#include "tests/support/frames.h"
#include "tests/support/unix_socket.h"

namespace valmere::test {

inline constexpr char kGetAll[] = R"({"GetAllProperties": true})";

// Takes step after step until `done`; a test whose `done` never comes fails after kPatience.
template <class Done, class Step>
void RepeatUntil(Done done, Step step) {
  const auto deadline = std::chrono::steady_clock::now() + kPatience;
  while (!done()) {
    ASSERT_LT(std::chrono::steady_clock::now(), deadline);
    ASSERT_NO_FATAL_FAILURE(step());
  }
}

// How many threads a process has.
std::size_t ThreadsOf(pid_t process);

// Purpose: one raw connection to a Unix socket.
// Owner: a test.
// Threads: one.
// Errors: what takes longer than kPatience, or ends early, fails the test.
class RawClient {
 public:
  explicit RawClient(const std::string& path);
  ~RawClient();
  RawClient(const RawClient&) = delete;
  RawClient& operator=(const RawClient&) = delete;

  void Send(const std::string& bytes) const;
  // False when the other end takes nothing.
  bool TrySend(const std::string& bytes) const;
  // The text of the next frame.
  std::string ReceiveFrame() const;
  std::string ReceiveExactly(std::size_t count) const;
  // The text of the next frame, or nothing when the stream ends before it is complete.
  std::string ReceiveFrameIfAny() const;
  // Everything up to the end of the stream; "lost" stands for a connection that broke.
  std::string ReceiveToEnd() const;
  void FinishSending() const;
  // Sends a frame and expects it back.
  void Exchange(const std::string& text) const;
  // True once the other end is closed, even while bytes wait to be read.
  bool PeerHasClosed() const;

 private:
  int socket_;
};

// Purpose: the calls that the fake driver got, one line each, as they happen.
// Owner: the fixture.
// Threads: one.
// Errors: a line that does not come within kPatience fails the test.
class CallLog {
 public:
  explicit CallLog(const std::string& path);
  ~CallLog();
  CallLog(const CallLog&) = delete;
  CallLog& operator=(const CallLog&) = delete;

  std::string Next();
  // Takes what is there, so that a driver that is called often does not wait for the pipe's reader.
  void Drain();
  // All lines up to and including `last`.
  std::vector<std::string> Until(const std::string& last);

 private:
  int pipe_;
  std::string text_;
};

// Purpose: the address that a service manager listens on for notices.
// Owner: a test.
// Threads: one.
// Errors: a notice that does not come within kPatience is "no notice".
class NoticeSocket {
 public:
  explicit NoticeSocket(const std::string& path);
  ~NoticeSocket();
  NoticeSocket(const NoticeSocket&) = delete;
  NoticeSocket& operator=(const NoticeSocket&) = delete;

  std::string Next() const;

 private:
  const int socket_;
};

// The content of a file; nothing of one that is not there.
std::string ContentOf(const std::string& path);

// valmered ends at once here, and calls the driver for clients alone, unless a test wants it to
// drain.
class ValmeredTest : public ::testing::Test {
 protected:
  // The root has the folder that the service keeps its settings in.
  ValmeredTest();

  std::vector<std::string> Command(const std::vector<std::string>& options = {}) const;
  // Starts valmered and waits until it is ready. The driver gets a limit of `log_bytes_` for its log.
  void Start(const std::vector<std::string>& options = {});
  // Ends it by a signal; expects a clean end.
  void Stop(int signal);

  TemporaryFolder folder_;
  const std::string root_ = folder_.Path("root");
  const std::string socket_ = folder_.Path("run/PRN1");
  const std::vector<std::string> environment_{"FAKE_DRIVER_LOG=" + folder_.Path("calls")};
  CallLog log_;
  std::string log_bytes_ = "16777216";
  std::string drain_timeout_ = "0";
  std::unique_ptr<Subprocess> valmered_;
};

}  // namespace valmere::test
