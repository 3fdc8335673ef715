// A service that answers as a test wants.
#pragma once

#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "client/property.h"
#include "tests/host/subprocess.h"
#include "tests/support/frames.h"

namespace valmere::test {

// A reply's text with these properties in it, written by hand.
std::string ResponseText(const std::vector<client::Property>& properties);

// The service's end of one connection; everything on the service's own thread.
class FakeConnection {
 public:
  explicit FakeConnection(int socket) : socket_(socket) {}

  // The text of the next frame; empty when the client has gone.
  std::string Receive() const;
  void Send(const std::string& text) const { SendBytes(FrameOf(text)); }
  void SendBytes(const std::string& bytes) const;
  // Waits until the client has gone.
  void WaitForEnd() const;

 private:
  int socket_;
};

// Purpose: listens on a Unix socket and runs a script for one connection after the other.
// Owner: a test.
// Threads: the script runs on a thread of its own, which the destructor joins.
// Errors: a script that waits for its client must be released by the client: end that first.
class FakeService {
 public:
  using Script = std::function<void(const FakeConnection&)>;

  explicit FakeService(Script script);
  ~FakeService();
  FakeService(const FakeService&) = delete;
  FakeService& operator=(const FakeService&) = delete;

  const std::string& path() const { return path_; }

 private:
  void Run(const Script& script);

  TemporaryFolder folder_;
  const std::string path_ = folder_.Path("PRN1");
  int listener_ = -1;
  int stop_ = -1;  // readable when the service shall end
  std::thread thread_;
};

}  // namespace valmere::test
