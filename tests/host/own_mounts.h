// File systems that a test mounts for itself; no other process on the machine sees them.
#pragma once

#include <string>

namespace valmere::test {

// Why this process may mount nothing, or nothing if it may. From the first call on it has a view of
// its own on what is mounted, as have the programs that it starts.
std::string WhyNothingCanBeMounted();

// Purpose: a file system in memory on a folder, empty at first.
// Owner: a test that has asked whether it may mount.
// Threads: one.
// Errors: a system call that fails throws std::system_error.
class MountedFolder {
 public:
  // `options` as mount(8) takes them for tmpfs: "size=64k", "nr_inodes=5".
  MountedFolder(std::string path, const std::string& options);
  ~MountedFolder();
  MountedFolder(const MountedFolder&) = delete;
  MountedFolder& operator=(const MountedFolder&) = delete;

  void MakeReadOnly() const;
  // Writes until there is no room left.
  void Fill() const;

 private:
  const std::string path_;
};

}  // namespace valmere::test
