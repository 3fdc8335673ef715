#include "tests/host/own_mounts.h"

#include <linux/capability.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <system_error>
#include <utility>

namespace valmere::test {
namespace {

std::string CauseOf(const std::string& what) {
  return what + ": " + std::error_code(errno, std::generic_category()).message();
}

// A process that makes a user namespace has all rights there; those not for mounting are dropped.
void KeepTheRightToMount() {
  __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
  __user_cap_data_struct rights[_LINUX_CAPABILITY_U32S_3]{};
  rights[0].effective = rights[0].permitted = 1U << CAP_SYS_ADMIN;
  syscall(SYS_capset, &header, rights);
}

// Keeps its user and group, so that the rights of files count as before.
void BecomeOneself(uid_t user, gid_t group) {
  std::ofstream("/proc/self/uid_map") << user << ' ' << user << " 1";
  std::ofstream("/proc/self/setgroups") << "deny";
  std::ofstream("/proc/self/gid_map") << group << ' ' << group << " 1";
  KeepTheRightToMount();
}

std::string TakeAView() {
  const uid_t user = getuid();
  const gid_t group = getgid();
  if (unshare(user == 0 ? CLONE_NEWNS : CLONE_NEWUSER | CLONE_NEWNS) != 0)
    return CauseOf("no namespace of its own");
  if (user != 0) BecomeOneself(user, group);
  if (mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0)
    return CauseOf("mounts can't be made private");
  return "";
}

void Check(int result) {
  if (result != 0) throw std::system_error(errno, std::generic_category(), "mount");
}

}  // namespace

std::string WhyNothingCanBeMounted() {
  static const std::string reason = TakeAView();
  return reason;
}

MountedFolder::MountedFolder(std::string path, const std::string& options)
    : path_(std::move(path)) {
  std::filesystem::create_directories(path_);
  Check(mount("tmpfs", path_.c_str(), "tmpfs", 0, options.c_str()));
}

MountedFolder::~MountedFolder() {
  umount2(path_.c_str(), MNT_DETACH);
}

void MountedFolder::MakeReadOnly() const {
  Check(mount(nullptr, path_.c_str(), nullptr, MS_REMOUNT | MS_RDONLY, nullptr));
}

void MountedFolder::Fill() const {
  std::ofstream file(path_ + "/filler", std::ios::binary);
  while (file.put('x').flush()) {
  }
}

}  // namespace valmere::test
