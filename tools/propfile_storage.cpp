#include "tools/propfile_storage.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

namespace valmere::tools {
namespace {

Failure Refused(const std::string& doing, const std::string& path) {
  return {kExitRefused, doing + " " + path + ": " + std::strerror(errno)};
}

// A descriptor that is closed with its scope.
class Descriptor {
 public:
  explicit Descriptor(int number) : number_(number) {}
  ~Descriptor() {
    if (number_ >= 0) close(number_);
  }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;

  int number() const { return number_; }
  bool open() const { return number_ >= 0; }

 private:
  const int number_;
};

bool WriteAll(int file, std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t count = write(file, bytes.data(), bytes.size());
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return false;
    bytes.remove_prefix(static_cast<std::size_t>(count));
  }
  return true;
}

// The content must be on the disk before the name is: a power cut in between would leave an empty
// file otherwise.
bool Fill(int file, std::string_view bytes, const struct stat& old) {
  // Only root may give a file away; without that the new one is the user's own, as any editor's.
  if (fchown(file, old.st_uid, old.st_gid) != 0 && errno != EPERM) return false;
  return fchmod(file, old.st_mode & 07777) == 0 && WriteAll(file, bytes) && fsync(file) == 0;
}

}  // namespace

std::variant<std::string, Failure> ReadWholeFile(const std::string& path) {
  const Descriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
  struct stat status {};
  if (!file.open() || fstat(file.number(), &status) != 0) return Refused("cannot read", path);
  if (!S_ISREG(status.st_mode)) return Failure{kExitRefused, path + " is no regular file"};
  std::string bytes;
  char buffer[65536];
  for (;;) {
    const ssize_t count = read(file.number(), buffer, sizeof buffer);
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return Refused("cannot read", path);
    if (count == 0) return bytes;
    bytes.append(buffer, static_cast<std::size_t>(count));
  }
}

std::optional<Failure> ReplaceFile(const std::string& path, std::string_view bytes) {
  const std::unique_ptr<char, void (*)(void*)> real(realpath(path.c_str(), nullptr), std::free);
  struct stat old {};
  if (!real || stat(real.get(), &old) != 0) return Refused("cannot write", path);
  std::string temporary = std::string(real.get()) + ".XXXXXX";
  const Descriptor file(mkostemp(temporary.data(), O_CLOEXEC));
  if (!file.open()) return Refused("cannot write beside", path);
  if (!Fill(file.number(), bytes, old) || std::rename(temporary.c_str(), real.get()) != 0) {
    const Failure failure = Refused("cannot write", path);
    unlink(temporary.c_str());
    return failure;
  }
  return std::nullopt;
}

}  // namespace valmere::tools
