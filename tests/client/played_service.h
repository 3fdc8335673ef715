// A service whose every word a test says itself, step by step.
#pragma once

#include <string>

#include "tests/client/fake_service.h"

namespace valmere::test {

// The service's end of one connection; ended with the object.
class PlayedConnection : public FakeConnection {
 public:
  explicit PlayedConnection(int socket) : FakeConnection(socket), owned_(socket) {}
  ~PlayedConnection() { End(); }
  PlayedConnection(PlayedConnection&& other) noexcept;
  PlayedConnection& operator=(PlayedConnection&& other) noexcept;

  void End();

 private:
  int owned_;
};

// Purpose: listens on a Unix socket; connections wait until the test takes them.
// Owner: a test.
// Threads: the test's.
// Errors: a connection that does not come within kPatience fails the test.
class PlayedService {
 public:
  PlayedService() { Listen(); }
  ~PlayedService() { StopListening(); }
  PlayedService(const PlayedService&) = delete;
  PlayedService& operator=(const PlayedService&) = delete;

  const std::string& path() const { return path_; }
  // The next connection that a client has made.
  PlayedConnection Accept() const;
  // Refuses connections, those that wait included.
  void StopListening();
  void Listen();

 private:
  TemporaryFolder folder_;
  const std::string path_ = folder_.Path("PRN1");
  int listener_ = -1;
};

}  // namespace valmere::test
