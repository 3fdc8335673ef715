// Two services that rewrite the same property file would lose each other's lines without a word, so
// the second is refused before it touches anything.
#include "host/root_folder.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <string_view>
#include <system_error>

namespace valmere::host {
namespace {

namespace fs = std::filesystem;

struct SkeletonFile {
  const char* path;
  std::string_view text;
};

// The version files that the service reads at its start, as a device's boot image has them, and a
// property file with the value that the service itself begins with, closed by its checksum: without
// one the service reports that it could not load its properties.
constexpr SkeletonFile kSkeletonFiles[] = {
    {"windows/version.ini", "OSVersion=\"8.3.6250.0\"\r\nOSBuildNumber=\"6250\"\r\n"},
    {"boot/qtlibs_version.ini", "QtVersion=\"5.6.1\"\r\nQtBuildNumber=\"17\"\r\n"},
    {"boot/qtcommon_version.ini", "QtCommonVersion=\"5.6.1\"\r\nQtCommonBuildNumber=\"17\"\r\n"},
    {"Store/ValmereProperties.ini",
     "99A61D40-20CE-41EA-A579-EB92C6ED94C6:DA821DC5-948D-4659-9B52-177E4C102129"
     "|General:Property Publishing Period in ms=500\n"
     "\xb6\xaf"},
};

std::runtime_error Failure(const std::string& what) {
  const int error = errno;
  return std::runtime_error(what + ": " +
                            std::error_code(error, std::generic_category()).message());
}

std::string Make(const std::string& path) {
  std::error_code error;
  fs::create_directories(path, error);
  if (error) throw std::runtime_error(path + ": cannot make the root: " + error.message());
  return fs::canonical(path).string();
}

void WriteFile(const fs::path& path, std::string_view text) {
  fs::create_directories(path.parent_path());
  std::ofstream file(path, std::ios::binary);
  file << text;
  if (!file.flush()) throw std::runtime_error(path.string() + ": cannot be written");
}

void FillIfEmpty(const fs::path& root) {
  if (!fs::is_empty(root)) return;
  for (const SkeletonFile& file : kSkeletonFiles)
    WriteFile(root / file.path, file.text);
}

}  // namespace

RootFolder::RootFolder(const std::string& path, Content content)
    : path_(Make(path)), descriptor_(open(path_.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)) {
  if (descriptor_ < 0) throw Failure(path_ + ": cannot open the root");
  try {
    Lock();
    if (content == Content::kSkeleton) FillIfEmpty(path_);
  } catch (const std::exception&) {
    close(descriptor_);
    throw;
  }
}

void RootFolder::Lock() const {
  if (flock(descriptor_, LOCK_EX | LOCK_NB) == 0) return;
  if (errno == EWOULDBLOCK) throw RootInUse(path_ + ": another valmered serves this root");
  throw Failure(path_ + ": cannot lock the root");
}

RootFolder::~RootFolder() {
  close(descriptor_);
}

bool RootFolder::IsFolder(int descriptor) const {
  struct stat own {};
  struct stat other {};
  return fstat(descriptor_, &own) == 0 && fstat(descriptor, &other) == 0 &&
         own.st_dev == other.st_dev && own.st_ino == other.st_ino;
}

}  // namespace valmere::host
