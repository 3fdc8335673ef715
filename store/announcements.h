// Properties that have come and gone since the last publishing pass.
#pragma once

#include <memory>
#include <vector>

#include "driver/sync/lock.h"
#include "store/property.h"

namespace valmere {

// Purpose: keeps what is to be announced as new and as vanished, each in order of arrival.
// Owner: the change publisher.
// Threads: any thread adds; one takes.
// Errors: std::bad_alloc; Take loses nothing then.
class Announcements {
 public:
  using Handles = std::vector<std::shared_ptr<Property>>;
  struct Taken {
    Handles added;
    Handles vanished;
  };

  void AddNew(std::shared_ptr<Property> property) EXCLUDES(lock_);
  void AddVanished(std::shared_ptr<Property> property) EXCLUDES(lock_);
  // What one pass announces: first all that was added, then all that has vanished. A property that
  // came back after it had vanished waits for the next pass, or it would be announced as gone.
  Taken Take() EXCLUDES(lock_);

 private:
  static Handles TakeReturned(Taken& taken);

  Lock lock_;
  Taken waiting_ GUARDED_BY(lock_);
};

}  // namespace valmere
