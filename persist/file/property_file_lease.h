// The lock on the property files.
#pragma once

#include <cstdint>
#include <functional>

#include "platform/kernel.h"

namespace valmere {

// Purpose: keeps the loads and the rewrites of all services of the process apart, so that each
// finds the files as one rewrite left them. While one service replaces another both are at work. It
// is a lease: a lock that its holder loses when it keeps it too long.
// Owner: a scope on the thread that loads or rewrites; it ends with the scope.
// Threads: any; leases are granted in the order in which they are asked for.
// Errors: std::bad_alloc when there is no memory to wait with. A thread that keeps the lease for
// kLongest while another waits, as in a file call that hangs, loses it to the one that waits.
class PropertyFileLease {
 public:
  static constexpr platform::Ticks kLongest = 1000 * platform::kTicksPerMillisecond;
  enum class For { kReading, kRewriting };
  using GiveUp = std::function<bool()>;

  // Waits for the lease. With `give_up`, only until that returns true; it is called before the wait
  // and at each WakeAll, and must not take a lock under which a thread asks for a lease.
  explicit PropertyFileLease(For purpose, const GiveUp& give_up = nullptr);
  ~PropertyFileLease();
  PropertyFileLease(const PropertyFileLease&) = delete;
  PropertyFileLease& operator=(const PropertyFileLease&) = delete;

  // False when the wait was given up.
  bool granted() const { return number_ != 0; }
  // False once another lease for rewriting has been granted: the lines that were read under this
  // one are out of date.
  bool MayWrite() const;
  // False once another thread has taken it over: what was read under it may be out of date.
  bool Lasts() const;

  // Makes every waiting thread call its `give_up`.
  static void WakeAll();

 private:
  const std::uint64_t number_;
};

}  // namespace valmere
