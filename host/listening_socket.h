// The socket file that clients connect to.
#pragma once

#include <sys/types.h>

#include <stdexcept>
#include <string>

namespace valmere::host {

// A live service answers on the wanted path already.
class SocketInUse : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// Purpose: a Unix socket that listens on a path, for its owner and group only; takes the place of a
// file that a dead process left there.
// Owner: the program.
// Threads: one at a time.
// Errors: the constructor throws SocketInUse, or std::runtime_error naming the path and the cause.
// The destructor removes the file, unless another service has put its own there since.
class ListeningSocket {
 public:
  explicit ListeningSocket(std::string path);
  ~ListeningSocket();
  ListeningSocket(const ListeningSocket&) = delete;
  ListeningSocket& operator=(const ListeningSocket&) = delete;

  int descriptor() const { return descriptor_; }
  const std::string& path() const { return path_; }
  // Clients are refused from now on; the file stays until the destructor.
  void StopListening();

 private:
  void Bind();

  const std::string path_;
  int descriptor_ = -1;
  dev_t device_ = 0;  // of the file that Bind made
  ino_t inode_ = 0;
};

}  // namespace valmere::host
