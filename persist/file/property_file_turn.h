// Whose turn it is at the property files.
#pragma once

#include <cstdint>
#include <functional>

#include "platform/kernel.h"

namespace valmere {

// Purpose: keeps the loads and the rewrites of all services of the process apart, so that each
// finds the files as one rewrite left them. While one service replaces another both are at work.
// Owner: a scope on the thread that loads or rewrites; it has its turn until it ends.
// Threads: any; turns come in the order in which they are asked for.
// Errors: std::bad_alloc when there is no memory to wait with. Who keeps the turn for kLongest
// while another waits, as in a file call that hangs, has it no more: the other goes ahead.
class PropertyFileTurn {
 public:
  static constexpr platform::Ticks kLongest = 1000 * platform::kTicksPerMillisecond;
  enum class For { kReading, kRewriting };
  using GiveUp = std::function<bool()>;

  // Waits for the turn. With `give_up`, only for as long as that says no; it is asked before the
  // wait and whenever WakeAll is called, and takes no lock that anybody waits under.
  explicit PropertyFileTurn(For purpose, const GiveUp& give_up = nullptr);
  ~PropertyFileTurn();
  PropertyFileTurn(const PropertyFileTurn&) = delete;
  PropertyFileTurn& operator=(const PropertyFileTurn&) = delete;

  // False when the wait was given up.
  bool taken() const { return number_ != 0; }
  // False once another turn for rewriting has begun: this one's own lines are out of date.
  bool MayWrite() const;
  // False once it was lost to one who waited: what was read in it may be out of date.
  bool Lasts() const;

  // Has all who wait ask whether to give up.
  static void WakeAll();

 private:
  const std::uint64_t number_;
};

}  // namespace valmere
