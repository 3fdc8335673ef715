// Three process-wide counts of what is alive. They exist to prove that an unload left nothing
// behind; all three read 0 in a process in which no service runs.
#pragma once

#include <atomic>
#include <cstdint>

namespace valmere {

// Counts one kind of object. An InstanceCount member makes its owner counted from construction to
// destruction. Any thread; changes and reads are fenced on both sides.
template <class Kind>
class InstanceCount {
 public:
  InstanceCount() { count_.fetch_add(1, std::memory_order_seq_cst); }
  ~InstanceCount() { count_.fetch_sub(1, std::memory_order_seq_cst); }
  InstanceCount(const InstanceCount&) = delete;
  InstanceCount& operator=(const InstanceCount&) = delete;

  static std::uint32_t Live() { return count_.load(std::memory_order_seq_cst); }

 private:
  static inline std::atomic<std::uint32_t> count_{0};
};

using LiveWorkerThreads = InstanceCount<struct WorkerThreadKind>;
using LiveEventFlags = InstanceCount<struct EventFlagsKind>;
using LiveProperties = InstanceCount<struct PropertyKind>;

}  // namespace valmere
