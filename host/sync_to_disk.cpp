#include "host/sync_to_disk.h"

#include <fcntl.h>
#include <unistd.h>

namespace valmere::host {
namespace {

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
  bool Sync() const { return number_ >= 0 && fsync(number_) == 0; }

 private:
  const int number_;
};

constexpr int kFolder = O_RDONLY | O_DIRECTORY | O_CLOEXEC;

}  // namespace

// The file first: a name must not last longer than what it stands for.
bool SyncToDisk(const std::string& root, const std::string& folder, const std::string& name) {
  const Descriptor top(open(root.c_str(), kFolder));
  const Descriptor in(openat(top.number(), folder.c_str(), kFolder | O_NOFOLLOW));
  const Descriptor file(
      openat(in.number(), name.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
  return file.Sync() && in.Sync();
}

}  // namespace valmere::host
