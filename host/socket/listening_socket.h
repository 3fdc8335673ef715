// The socket file that clients connect to.
#pragma once

#include <sys/types.h>

#include <stdexcept>
#include <string>

#include "host/root/root_folder.h"

namespace valmere::host {

// A live service answers on the wanted path already.
class SocketInUse : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// Purpose: a Unix socket that listens on a path: one that it makes, for its owner and group only,
// in place of a file that a dead process left there; or one that was inherited.
// Owner: the program.
// Threads: one at a time.
// Errors: the constructor throws SocketInUse, or std::runtime_error naming the path and the cause.
// The destructor removes the file that was made, unless another service has put its own there.
class ListeningSocket {
 public:
  // Makes one. `root` is locked by this process, and may be the socket's folder as well. A path
  // that is not absolute counts from the working folder of this moment.
  ListeningSocket(const std::string& path, const RootFolder& root);
  // Takes over one that listens; its file belongs to the program that made it.
  explicit ListeningSocket(int inherited);
  ~ListeningSocket();
  ListeningSocket(const ListeningSocket&) = delete;
  ListeningSocket& operator=(const ListeningSocket&) = delete;

  int descriptor() const { return descriptor_; }
  // Absolute, or the name of an abstract address.
  const std::string& path() const { return path_; }
  // Clients are refused from now on; the file stays until the destructor.
  void StopListening();

 private:
  void Bind(const std::string& path, const RootFolder& root);

  const std::string path_;
  int descriptor_ = -1;
  dev_t device_ = 0;  // of the file that Bind made; 0 when it made none
  ino_t inode_ = 0;
};

}  // namespace valmere::host
