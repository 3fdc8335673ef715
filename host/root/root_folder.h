// The folder that stands for the device's files.
#pragma once

#include <stdexcept>
#include <string>

namespace valmere::host {

// Another valmered serves the root already.
class RootInUse : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// Nothing can be served from the root.
class RootUnusable : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// Purpose: a device root that belongs to this process alone while the object lives; made if it is
// missing. The lock is on the folder itself and ends with the process, however that ends.
// Owner: the program; it outlives the driver.
// Threads: one at a time.
// Errors: the constructor throws RootInUse, or RootUnusable naming the path and the cause.
class RootFolder {
 public:
  explicit RootFolder(const std::string& path);
  ~RootFolder();
  RootFolder(const RootFolder&) = delete;
  RootFolder& operator=(const RootFolder&) = delete;

  // Absolute, without links.
  const std::string& path() const { return path_; }
  // Open on the folder, wherever its path leads by now.
  int descriptor() const { return descriptor_; }
  // True when `descriptor` is open on this very folder.
  bool IsFolder(int descriptor) const;
  // Whether the path still leads to this folder; true when there is no memory to find out.
  bool IsInPlace() const noexcept;
  // Makes it the process's working folder, by which others on the machine can find it. Throws
  // RootUnusable.
  void Enter() const;

 private:
  void Lock() const;

  const std::string path_;
  const int descriptor_;
};

}  // namespace valmere::host
