// The descriptors come under the numbers, and the notices go to the address, that the environment
// names; without it all of this does nothing.
#include "host/system/service_manager.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <systemd/sd-daemon.h>

#include <stdexcept>
#include <string>
#include <system_error>

namespace valmere::host {

std::optional<int> InheritedSocket() {
  const int count = sd_listen_fds(1);
  if (count < 0)
    throw std::runtime_error("the passed sockets can't be taken: " +
                             std::error_code(-count, std::generic_category()).message());
  if (count == 0) return std::nullopt;
  if (count > 1)
    throw std::runtime_error("one socket is served, but " + std::to_string(count) + " were passed");
  const int socket = SD_LISTEN_FDS_START;
  if (sd_is_socket_unix(socket, SOCK_STREAM, 1, nullptr, 0) <= 0)
    throw std::runtime_error("what was passed is no listening Unix stream socket");
  if (fcntl(socket, F_SETFL, fcntl(socket, F_GETFL) | O_NONBLOCK) < 0)
    throw std::runtime_error("the passed socket can't be made non-blocking");
  return socket;
}

void NotifyReady(const std::string& status) {
  sd_notify(0, ("READY=1\nSTATUS=" + status).c_str());
}

void NotifyStatus(const std::string& status) {
  sd_notify(0, ("STATUS=" + status).c_str());
}

void NotifyStopping() {
  sd_notify(0, "STOPPING=1");
}

}  // namespace valmere::host
