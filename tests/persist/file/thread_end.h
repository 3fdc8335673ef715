// Tells a worker thread that returned from one that was ended by force.
#pragma once

#include <atomic>

namespace valmere::test {

// Watch makes the calling thread set `returned` as it returns: a thread that is ended where it
// stands doesn't come to that. The flag must outlive the thread.
class ThreadEnd {
 public:
  static void Watch(std::atomic<bool>& returned) {
    thread_local ThreadEnd here;
    here.returned_ = &returned;
  }
  ThreadEnd() = default;
  ThreadEnd(const ThreadEnd&) = delete;
  ThreadEnd& operator=(const ThreadEnd&) = delete;
  ~ThreadEnd() { *returned_ = true; }

 private:
  std::atomic<bool>* returned_ = nullptr;
};

}  // namespace valmere::test
