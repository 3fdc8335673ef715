// A root that is moved, removed or covered by another while it is served.
#pragma once

#include <uv.h>

#include <functional>

#include "host/root/root_folder.h"

namespace valmere::host {

// Purpose: calls back when the root's path no longer leads to the folder that is served, and when
// it does so again. The kernel wakes it only when the folder or one above it is moved, or something
// is removed from it.
// Owner: the program; root and loop must outlive it, and the loop must run once more after it.
// Threads: the loop's.
// Errors: none; what can't be watched is left out. A system that watches nothing is reported on
// standard error.
class RootWatch {
 public:
  using Callback = std::function<void(bool in_place)>;

  RootWatch(uv_loop_t& loop, const RootFolder& root, Callback callback);
  ~RootWatch();
  RootWatch(const RootWatch&) = delete;
  RootWatch& operator=(const RootWatch&) = delete;

 private:
  struct Source;

  Source* Open(uv_loop_t& loop, int descriptor, int events);
  void Check() noexcept;
  void WatchFolders(bool closely) const;
  bool HasStore() const;

  const RootFolder& root_;
  const Callback callback_;
  bool in_place_ = true;
  Source* changes_ = nullptr;  // of folders
  Source* mounts_ = nullptr;   // of the file systems that are mounted
};

}  // namespace valmere::host
