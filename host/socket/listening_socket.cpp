// A socket file outlives the process that made it, so its being there says nothing; a connect does:
// a dead one refuses it. Between that test and the bind another service might do the same, so both
// happen under a lock on the folder, which needs no lock file and ends with the process.
#include "host/socket/listening_socket.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstddef>
#include <cstring>
#include <filesystem>
#include <system_error>
#include <thread>

namespace valmere::host {
namespace {

constexpr int kBacklog = 1024;

std::runtime_error Failure(const std::string& path, const std::string& what, int error) {
  return std::runtime_error(path + ": " + what + ": " +
                            std::error_code(error, std::generic_category()).message());
}

sockaddr_un AddressOf(const std::string& path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  if (path.empty() || path.size() >= sizeof(address.sun_path))
    throw std::runtime_error(path + ": a socket path has 1 to " +
                             std::to_string(sizeof(address.sun_path) - 1) + " bytes");
  std::memcpy(address.sun_path, path.data(), path.size());
  return address;
}

const sockaddr* Generic(const sockaddr_un& address) {
  return reinterpret_cast<const sockaddr*>(&address);
}

// Keeps other services out of the folder while it lives. Each holds it for a moment only, unless
// the folder is the root of another, which stays locked as long as that one runs.
class FolderLock {
 public:
  FolderLock(const std::string& folder, const RootFolder& root)
      : descriptor_(open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)) {
    if (descriptor_ < 0) throw Failure(folder, "cannot open the folder", errno);
    if (root.IsFolder(descriptor_) || Acquire()) return;
    const int error = errno;
    close(descriptor_);
    if (error == EWOULDBLOCK)
      throw std::runtime_error(folder + ": is the root of another valmered, or locked otherwise");
    throw Failure(folder, "cannot lock the folder", error);
  }
  ~FolderLock() { close(descriptor_); }
  FolderLock(const FolderLock&) = delete;
  FolderLock& operator=(const FolderLock&) = delete;

 private:
  bool Acquire() const {
    constexpr std::chrono::milliseconds kPause{10};
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(2);
    while (flock(descriptor_, LOCK_EX | LOCK_NB) != 0) {
      if (errno != EWOULDBLOCK || std::chrono::steady_clock::now() > deadline) return false;
      std::this_thread::sleep_for(kPause);
    }
    return true;
  }

  const int descriptor_;
};

std::string FolderOf(const std::string& path) {
  const std::filesystem::path parent = std::filesystem::path(path).parent_path();
  if (parent.empty()) return ".";
  std::error_code error;
  std::filesystem::create_directories(parent, error);
  if (error) throw Failure(parent.string(), "cannot make the folder", error.value());
  return parent.string();
}

bool ServiceAnswers(const std::string& path, const sockaddr_un& address) {
  const int probe = socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
  if (probe < 0) throw Failure(path, "cannot make a socket", errno);
  const int result = connect(probe, Generic(address), sizeof(address));
  const int error = result == 0 ? 0 : errno;
  close(probe);
  // A full queue refuses for now only: a service is there.
  if (error == 0 || error == EAGAIN) return true;
  if (error == ECONNREFUSED || error == ENOENT) return false;
  throw Failure(path, "cannot tell whether a service runs there", error);
}

void RemoveStaleFile(const std::string& path, const sockaddr_un& address) {
  struct stat file {};
  if (lstat(path.c_str(), &file) != 0) return;
  if (!S_ISSOCK(file.st_mode)) throw std::runtime_error(path + ": is there and is no socket");
  if (ServiceAnswers(path, address)) throw SocketInUse(path + ": a service already answers there");
  if (unlink(path.c_str()) != 0) throw Failure(path, "cannot remove the stale socket", errno);
}

// What the socket was bound to; an abstract address begins with "@" as people write it.
std::string PathOf(int socket) {
  sockaddr_un address{};
  socklen_t size = sizeof(address);
  if (getsockname(socket, reinterpret_cast<sockaddr*>(&address), &size) != 0)
    throw Failure("the passed socket", "has no address", errno);
  std::string path(address.sun_path, size - offsetof(sockaddr_un, sun_path));
  if (!path.empty() && path[0] == '\0')
    path[0] = '@';
  else
    path.resize(std::strlen(path.c_str()));
  return path;
}

}  // namespace

ListeningSocket::ListeningSocket(int inherited)
    : path_(PathOf(inherited)), descriptor_(inherited) {}

ListeningSocket::ListeningSocket(const std::string& path, const RootFolder& root)
    : path_(path.empty() ? path : std::filesystem::absolute(path).string()) {
  try {
    Bind(path, root);
  } catch (const std::exception&) {
    StopListening();
    throw;
  }
}

ListeningSocket::~ListeningSocket() {
  StopListening();
  struct stat file {};
  if (inode_ != 0 && lstat(path_.c_str(), &file) == 0 && file.st_dev == device_ &&
      file.st_ino == inode_)
    unlink(path_.c_str());
}

void ListeningSocket::StopListening() {
  if (descriptor_ >= 0) close(descriptor_);
  descriptor_ = -1;
}

// Bound as it was given: an absolute path may be too long where that is not.
void ListeningSocket::Bind(const std::string& path, const RootFolder& root) {
  const sockaddr_un address = AddressOf(path);
  const FolderLock lock(FolderOf(path_), root);
  RemoveStaleFile(path_, address);
  descriptor_ = socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
  if (descriptor_ < 0) throw Failure(path_, "cannot make a socket", errno);
  // The mask, not a later chmod: no other user may connect in between.
  const mode_t mask = umask(0117);
  const int bound = bind(descriptor_, Generic(address), sizeof(address));
  const int error = errno;
  umask(mask);
  if (bound != 0) throw Failure(path_, "cannot bind", error);
  struct stat file {};
  if (lstat(path_.c_str(), &file) != 0) throw Failure(path_, "cannot look at the socket", errno);
  device_ = file.st_dev;
  inode_ = file.st_ino;
  if (listen(descriptor_, kBacklog) != 0) throw Failure(path_, "cannot listen", errno);
}

}  // namespace valmere::host
