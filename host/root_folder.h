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

// Purpose: a device root that belongs to this process alone while the object lives; made if it is
// missing. The lock is on the folder itself and ends with the process, however that ends.
// Owner: the program; it outlives the driver.
// Threads: one at a time.
// Errors: the constructor throws RootInUse, or std::runtime_error naming the path and the cause.
class RootFolder {
 public:
  enum class Content {
    kAsItIs,
    kSkeleton,  // an empty root gets what a freshly installed device has
  };

  RootFolder(const std::string& path, Content content);
  ~RootFolder();
  RootFolder(const RootFolder&) = delete;
  RootFolder& operator=(const RootFolder&) = delete;

  // Absolute, without links.
  const std::string& path() const { return path_; }
  // True when `descriptor` is open on this very folder.
  bool IsFolder(int descriptor) const;

 private:
  void Lock() const;

  const std::string path_;
  const int descriptor_;
};

}  // namespace valmere::host
