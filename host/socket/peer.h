// The process or the machine at the other end of a socket.
#pragma once

#include <sys/types.h>

#include <string>

namespace valmere::host {

struct Peer {
  pid_t process = 0;  // as it was when the connection was made; 0 where the socket does not tell
  std::string text;   // "pid 12, uid 1000", or an address and port
};

// Any thread; std::bad_alloc.
Peer PeerOf(int socket);

// "127.0.0.1:4711", "[::1]:4711": where this end of a socket is, or its other end. Empty for one
// that has no address of the internet.
std::string InternetAddressOf(int socket);
std::string InternetAddressOfPeer(int socket);

}  // namespace valmere::host
