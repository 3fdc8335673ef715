#include "host/socket/peer.h"

#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <utility>

namespace valmere::host {
namespace {

using AskForAddress = int (*)(int, sockaddr*, socklen_t*);

std::string AddressText(int socket, AskForAddress ask) {
  sockaddr_storage address{};
  socklen_t size = sizeof(address);
  auto* const generic = reinterpret_cast<sockaddr*>(&address);
  if (ask(socket, generic, &size) != 0) return "";
  if (address.ss_family != AF_INET && address.ss_family != AF_INET6) return "";
  char host[NI_MAXHOST];
  char port[NI_MAXSERV];
  if (getnameinfo(generic, size, host, sizeof(host), port, sizeof(port),
                  NI_NUMERICHOST | NI_NUMERICSERV) != 0)
    return "";
  const std::string text = address.ss_family == AF_INET6 ? "[" + std::string(host) + "]" : host;
  return text + ":" + port;
}

}  // namespace

Peer PeerOf(int socket) {
  ucred peer{};
  socklen_t size = sizeof(peer);
  // TCP gives an answer too, of no process.
  if (getsockopt(socket, SOL_SOCKET, SO_PEERCRED, &peer, &size) == 0 && peer.pid != 0)
    return {peer.pid, "pid " + std::to_string(peer.pid) + ", uid " + std::to_string(peer.uid)};
  std::string address = InternetAddressOfPeer(socket);
  return {0, address.empty() ? "unknown peer" : std::move(address)};
}

std::string InternetAddressOf(int socket) {
  return AddressText(socket, getsockname);
}

std::string InternetAddressOfPeer(int socket) {
  return AddressText(socket, getpeername);
}

}  // namespace valmere::host
