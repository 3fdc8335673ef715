// Properties that have come and gone since the last publishing pass.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "driver/sync/lock.h"
#include "store/property/property.h"

namespace valmere {

// Purpose: keeps what is to be announced as new and as vanished, each in order of arrival.
// Owner: the pending updates.
// Threads: any thread adds; one takes.
// Errors: std::bad_alloc; Take loses nothing then. Of each kind kMostWaiting wait between two
// passes, further ones are dropped and counted.
class Announcements {
 public:
  using Handles = std::vector<std::shared_ptr<Property>>;
  struct Taken {
    Handles added;
    Handles vanished;
    // How many of each were dropped.
    std::uint64_t lost_added = 0;
    std::uint64_t lost_vanished = 0;
  };

  static constexpr std::size_t kMostWaiting = 65'536;

  void AddNew(std::shared_ptr<Property> property) EXCLUDES(lock_);
  void AddVanished(std::shared_ptr<Property> property) EXCLUDES(lock_);
  // What one pass announces: first all that was added, then all that has vanished. A property that
  // came back after it had vanished waits for the next pass, or it would be announced as gone.
  // Gives nothing when `stop` is up.
  Taken Take(const std::atomic<bool>& stop) EXCLUDES(lock_);

 private:
  static void Add(std::shared_ptr<Property>& property, Handles& waiting, std::uint64_t& lost);
  void Fetch() EXCLUDES(lock_);
  Handles TakeReturned(const std::atomic<bool>& stop);

  Lock lock_;
  Taken waiting_ GUARDED_BY(lock_);

  // The taker's own: what has been fetched and not been given out.
  Taken fetched_;
  bool sorted_ = true;  // fetched_ holds only what waits for the next pass
};

}  // namespace valmere
