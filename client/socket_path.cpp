// One rule for both ends of the socket, so that a client finds the service without an option.
#include "client/socket_path.h"

#include <cstdlib>

namespace valmere::client {
namespace {

std::string Variable(const char* name) {
  const char* value = std::getenv(name);  // NOLINT(concurrency-mt-unsafe): nothing here sets any
  return value != nullptr ? value : "";
}

}  // namespace

std::string DefaultSocketPath() {
  if (std::string path = Variable("VALMERE_SOCKET"); !path.empty()) return path;
  if (std::string folder = Variable("XDG_RUNTIME_DIR"); !folder.empty())
    return folder + "/valmere/PRN1";
  return "/run/valmere/PRN1";
}

}  // namespace valmere::client
