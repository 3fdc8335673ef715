#include "host/socket/internet_socket.h"

#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <cerrno>
#include <charconv>
#include <cstdint>
#include <memory>
#include <stdexcept>
#include <system_error>

namespace valmere::host {
namespace {

constexpr int kTcpBacklog = 1024;
constexpr char kLoopback[] = "127.0.0.1";

std::runtime_error ListenFailure(const std::string& where, const std::string& cause) {
  return std::runtime_error(where + ": can't listen there: " + cause);
}

std::runtime_error ListenFailure(const std::string& where, int error) {
  return ListenFailure(where, std::error_code(error, std::generic_category()).message());
}

struct Place {
  std::string host;
  std::string port;
};

Place Split(const std::string& where) {
  const std::size_t colon = where.rfind(':');
  if (colon == std::string::npos) return {kLoopback, where};
  std::string host = where.substr(0, colon);
  if (host.size() > 1 && host.front() == '[' && host.back() == ']')
    host = host.substr(1, host.size() - 2);
  return {host.empty() ? kLoopback : host, where.substr(colon + 1)};
}

using Addresses = std::unique_ptr<addrinfo, void (*)(addrinfo*)>;

// The system's own reading of a port takes the rest of a number that is too large.
bool IsPort(const std::string& text) {
  std::uint16_t port = 0;
  const char* const end = text.data() + text.size();
  const auto [rest, error] = std::from_chars(text.data(), end, port);
  return error == std::errc() && rest == end;
}

Addresses Resolve(const std::string& where) {
  const Place place = Split(where);
  addrinfo wanted{};
  wanted.ai_socktype = SOCK_STREAM;
  wanted.ai_flags = AI_NUMERICHOST | AI_NUMERICSERV | AI_PASSIVE;
  addrinfo* found = nullptr;
  if (!IsPort(place.port) ||
      getaddrinfo(place.host.c_str(), place.port.c_str(), &wanted, &found) != 0)
    throw ListenFailure(where, "it is no ADDRESS:PORT in numbers");
  return {found, freeaddrinfo};
}

}  // namespace

platform::Descriptor ListenOnInternet(const std::string& where) {
  const Addresses address = Resolve(where);
  platform::Descriptor socket(
      ::socket(address->ai_family, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, IPPROTO_TCP));
  if (!socket.valid()) throw ListenFailure(where, errno);
  // A restarted service gets its port back while connections of the last run linger.
  const int on = 1;
  setsockopt(socket.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof(on));
  if (bind(socket.get(), address->ai_addr, address->ai_addrlen) != 0 ||
      listen(socket.get(), kTcpBacklog) != 0)
    throw ListenFailure(where, errno);
  return socket;
}

bool IsLoopback(int socket) {
  sockaddr_storage address{};
  socklen_t size = sizeof(address);
  if (getsockname(socket, reinterpret_cast<sockaddr*>(&address), &size) != 0) return false;
  if (address.ss_family == AF_INET6)
    return IN6_IS_ADDR_LOOPBACK(&reinterpret_cast<const sockaddr_in6&>(address).sin6_addr);
  constexpr std::uint32_t kLoopbackNetwork = 127;
  const auto& internet = reinterpret_cast<const sockaddr_in&>(address);
  return ntohl(internet.sin_addr.s_addr) >> 24 == kLoopbackNetwork;
}

}  // namespace valmere::host
