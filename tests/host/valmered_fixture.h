// valmered, and clients that speak to it in raw bytes.
#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "tests/driver/messages.h"
#include "tests/host/subprocess.h"
#include "tests/support/frames.h"
#include "tests/support/unix_socket.h"

namespace valmere::test {

inline constexpr char kGetAll[] = R"({"GetAllProperties": true})";
inline constexpr char kDisconnect[] = R"({"Disconnect": true})";

// Takes step after step until `done`; a test whose `done` never comes fails after kPatience.
template <class Done, class Step>
void RepeatUntil(Done done, Step step) {
  const auto deadline = std::chrono::steady_clock::now() + kPatience;
  while (!done()) {
    ASSERT_LT(std::chrono::steady_clock::now(), deadline);
    ASSERT_NO_FATAL_FAILURE(step());
  }
}

// How many threads a process has, how many descriptors, how many bytes of memory.
std::size_t ThreadsOf(pid_t process);
std::size_t DescriptorsOf(pid_t process);
std::size_t MemoryOf(pid_t process);

// A get that names the property so many times; each time is an entry of the answer.
std::string GetManyText(const Address& address, int times);
std::string SubscribeText(const Address& address);
// A property of the service's own, and the key of its line in the property file.
inline const Address kPeriodAddress{
    kOwnComponent.component,
    "99A61D40-20CE-41EA-A579-EB92C6ED94C6:DA821DC5-948D-4659-9B52-177E4C102129"};

// Purpose: one raw connection to valmered, with the address of a property that no other client has.
// Owner: a test.
// Threads: one.
// Errors: what takes longer than kPatience, or ends early, fails the test.
class RawClient {
 public:
  // To the Unix socket at `path`.
  explicit RawClient(const std::string& path);
  // To a TCP port of this machine.
  explicit RawClient(std::uint16_t port);
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
  // True once the other end is closed, even while bytes wait to be read.
  bool PeerHasClosed() const;

  const Address& address() const { return address_; }
  // What publishes its property with this value, which is also the answer to a get of it then.
  std::string Published(const std::string& value) const { return PublishedText(address_, value); }
  std::string Get() const { return GetText(address_); }
  // Both as frames: they are answered with Published(value).
  std::string Request(const std::string& value) const;
  // Publishes its property with this value and gets it.
  void Exchange(const std::string& value) const;
  // The answer to a request.
  std::string Ask(const std::string& text) const;
  // Asks for so many bytes and a little more, and does not read them.
  void AskWithoutReading(std::size_t bytes) const;

 private:
  const int socket_;
  const Address address_;
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

// valmered ends at once here, unless a test wants it to drain.
class ValmeredTest : public ::testing::Test {
 protected:
  // The root has the folder that the service keeps its settings in.
  ValmeredTest();

  std::vector<std::string> Command(const std::vector<std::string>& options = {}) const;
  // Starts valmered and waits until it is ready.
  void Start(const std::vector<std::string>& options = {});
  // Ends it by a signal; expects a clean end.
  void Stop(int signal);
  // Expects that it has ended well, and that nothing of its service was left.
  void ExpectCleanEnd();
  // The line that says why a client of this process was closed, as an expression.
  static std::string ClosedLine(const std::string& cause);

  TemporaryFolder folder_;
  const std::string root_ = folder_.Path("root");
  const std::string socket_ = folder_.Path("run/PRN1");
  std::string drain_timeout_ = "0";
  std::unique_ptr<Subprocess> valmered_;

 private:
  std::uintmax_t clean_ends_ = 0;
};

}  // namespace valmere::test
