// valmered as a child process, for the benches of the desk.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <string>
#include <vector>

#include "bench/program.h"
#include "tests/support/socket_client.h"

namespace valmere::bench {

using test::SocketClient;

// valmered on a root of its own in the folder, on the socket that is named "socket" there; it takes
// more clients of one process than it does unless told.
std::vector<std::string> ValmeredCommand(const Folder& folder);

// Purpose: a valmered that answers.
// Owner: the bench; ended and removed with it.
// Threads: one.
// Errors: std::runtime_error when it does not start.
class Daemon {
 public:
  Daemon();
  Daemon(const Daemon&) = delete;
  Daemon& operator=(const Daemon&) = delete;

  const std::string& socket_path() const { return socket_; }
  pid_t process() const { return program_.process(); }

 private:
  const Folder folder_;
  const std::string socket_;
  const Program program_;
};

// Publishes the first `count` properties of bench/messages.h and returns when they are there. They
// go with the client.
void Publish(SocketClient& owner, int count, std::size_t value_bytes = 8);

}  // namespace valmere::bench
