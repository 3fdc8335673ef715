#include "tools/service/service_process.h"

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <climits>
#include <cstring>

#include "platform/posix/descriptor.h"

namespace valmere::tools {
namespace {

// 0 when it can't be told. The kernel knows it from the connection alone, so nothing is sent.
pid_t ProcessBehind(const std::string& path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  if (path.size() >= sizeof address.sun_path) return 0;
  std::memcpy(address.sun_path, path.data(), path.size());
  const platform::Descriptor probe(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  ucred peer{};
  socklen_t size = sizeof peer;
  if (!probe.valid() ||
      connect(probe.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
      getsockopt(probe.get(), SOL_SOCKET, SO_PEERCRED, &peer, &size) != 0)
    return 0;
  return peer.pid;
}

bool IsSameFolder(const std::string& one, const std::string& other) {
  struct stat first {};
  struct stat second {};
  return stat(one.c_str(), &first) == 0 && stat(other.c_str(), &second) == 0 &&
         first.st_dev == second.st_dev && first.st_ino == second.st_ino;
}

}  // namespace

std::string WorkingFolderOfListener(const std::string& socket) {
  const pid_t process = ProcessBehind(socket);
  if (process <= 0) return "";
  const std::string link = "/proc/" + std::to_string(process) + "/cwd";
  char target[PATH_MAX];
  const ssize_t length = readlink(link.c_str(), target, sizeof target);
  if (length <= 0) return "";
  // Its name is for people, and may mean another folder where the process sees other mounts.
  const std::string name(target, static_cast<std::size_t>(length));
  return IsSameFolder(name, link) ? name : link;
}

}  // namespace valmere::tools
