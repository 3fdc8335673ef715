// The descriptors come under the numbers, and the notices go to the address, that the environment
// names; without it all of this does nothing. The library brings seven others with it, which take
// longer to load than the service to start: it is loaded where there is a service manager.
#include "host/system/service_manager.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/socket.h>
#include <systemd/sd-daemon.h>

#include <cstdlib>
#include <stdexcept>
#include <string>
#include <system_error>

namespace valmere::host {
namespace {

// What is called `name` in the library; it stays loaded. Null when it can't be had.
void* FromLibrary(const char* name) {
  static void* const library = dlopen("libsystemd.so.0", RTLD_LAZY | RTLD_LOCAL);
  return library != nullptr ? dlsym(library, name) : nullptr;
}

template <class Function>
Function* FunctionFromLibrary(const char* name) {
  return reinterpret_cast<Function*>(FromLibrary(name));
}

void Notify(const std::string& notice) {
  // NOLINTNEXTLINE(concurrency-mt-unsafe): the environment does not change
  if (std::getenv("NOTIFY_SOCKET") == nullptr) return;
  if (auto* const notify = FunctionFromLibrary<decltype(sd_notify)>("sd_notify"))
    notify(0, notice.c_str());
}

}  // namespace

std::optional<int> InheritedSocket() {
  if (std::getenv("LISTEN_FDS") == nullptr) return std::nullopt;  // NOLINT(concurrency-mt-unsafe)
  auto* const listen_fds = FunctionFromLibrary<decltype(sd_listen_fds)>("sd_listen_fds");
  auto* const is_socket = FunctionFromLibrary<decltype(sd_is_socket_unix)>("sd_is_socket_unix");
  if (listen_fds == nullptr || is_socket == nullptr)
    throw std::runtime_error("the passed sockets can't be taken: libsystemd.so.0 can't be loaded");
  const int count = listen_fds(1);
  if (count < 0)
    throw std::runtime_error("the passed sockets can't be taken: " +
                             std::error_code(-count, std::generic_category()).message());
  if (count == 0) return std::nullopt;
  if (count > 1)
    throw std::runtime_error("one socket is served, but " + std::to_string(count) + " were passed");
  const int socket = SD_LISTEN_FDS_START;
  if (is_socket(socket, SOCK_STREAM, 1, nullptr, 0) <= 0)
    throw std::runtime_error("what was passed is no listening Unix stream socket");
  if (fcntl(socket, F_SETFL, fcntl(socket, F_GETFL) | O_NONBLOCK) < 0)
    throw std::runtime_error("the passed socket can't be made non-blocking");
  return socket;
}

void NotifyReady(const std::string& status) {
  Notify("READY=1\nSTATUS=" + status);
}

void NotifyStatus(const std::string& status) {
  Notify("STATUS=" + status);
}

void NotifyStopping() {
  Notify("STOPPING=1");
}

}  // namespace valmere::host
