// Two services that rewrite the same property file would lose each other's lines, and nothing would
// show it; so the second is refused before it touches anything.
#include "host/root/root_folder.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <system_error>

namespace valmere::host {
namespace {

namespace fs = std::filesystem;

RootUnusable Failure(const std::string& what, int error) {
  return RootUnusable(what + ": " + std::error_code(error, std::generic_category()).message());
}

std::string Make(const std::string& path) {
  std::error_code error;
  fs::create_directories(path, error);
  if (error) throw Failure(path + ": cannot make the root", error.value());
  const fs::path canonical = fs::canonical(path, error);
  if (error) throw Failure(path + ": cannot reach the root", error.value());
  return canonical.string();
}

bool AreSame(const struct stat& one, const struct stat& other) {
  return one.st_dev == other.st_dev && one.st_ino == other.st_ino;
}

}  // namespace

RootFolder::RootFolder(const std::string& path)
    : path_(Make(path)), descriptor_(open(path_.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)) {
  if (descriptor_ < 0) throw Failure(path_ + ": cannot open the root", errno);
  try {
    Lock();
  } catch (const std::exception&) {
    close(descriptor_);
    throw;
  }
}

void RootFolder::Lock() const {
  if (flock(descriptor_, LOCK_EX | LOCK_NB) == 0) return;
  if (errno == EWOULDBLOCK) throw RootInUse(path_ + ": another valmered serves this root");
  throw Failure(path_ + ": cannot lock the root", errno);
}

RootFolder::~RootFolder() {
  close(descriptor_);
}

bool RootFolder::IsFolder(int descriptor) const {
  struct stat own {};
  struct stat other {};
  return fstat(descriptor_, &own) == 0 && fstat(descriptor, &other) == 0 && AreSame(own, other);
}

bool RootFolder::IsInPlace() const noexcept {
  struct stat own {};
  struct stat found {};
  if (stat(path_.c_str(), &found) != 0) return errno == ENOMEM;
  return fstat(descriptor_, &own) == 0 && AreSame(own, found);
}

void RootFolder::Enter() const {
  if (fchdir(descriptor_) != 0) throw Failure(path_ + ": cannot enter the root", errno);
}

}  // namespace valmere::host
