// A root that is moved, removed or covered by another while it is served.
#pragma once

#include <uv.h>

#include <functional>

#include "host/root/root_folder.h"

namespace valmere::host {

// Purpose: tells when the root's path no longer leads to the folder that is served, and when it
// does so again. Asks the kernel to be told, and is silent as long as nobody moves the folder or
// one that it lies in, or removes something from it.
// Owner: the program; root and loop must outlive it, and the loop must run once more after it.
// Threads: the loop's.
// Errors: none; what can't be watched is left out; standard error is told where the system watches
// nothing.
class RootWatch {
 public:
  using Tell = std::function<void(bool in_place)>;

  RootWatch(uv_loop_t& loop, const RootFolder& root, Tell tell);
  ~RootWatch();
  RootWatch(const RootWatch&) = delete;
  RootWatch& operator=(const RootWatch&) = delete;

 private:
  struct Source;

  Source* Open(uv_loop_t& loop, int descriptor, int events);
  void Look() noexcept;
  void WatchFolders(bool closely) const;
  bool HoldsStore() const;

  const RootFolder& root_;
  const Tell tell_;
  bool in_place_ = true;
  Source* changes_ = nullptr;  // of folders
  Source* mounts_ = nullptr;   // of the file systems that are mounted
};

}  // namespace valmere::host
