// What has been reported to the publisher and waits for its next pass.
#pragma once

#include <memory>

#include "store/engine/announcements.h"
#include "store/engine/change_stack.h"
#include "store/property/handle_list.h"
#include "store/property/property.h"

namespace valmere {

// Purpose: the places where changes, comings and goings wait for the publisher.
// Owner: shared by the observation and the presence, which report, and the publisher.
// Threads: any thread reports; one takes. Each member has a lock of its own.
// Errors: those of the members.
struct PendingUpdates {
  // False when the change was dropped.
  bool PushChange(const std::shared_ptr<Property>& property) {
    return (property->OfComponent() ? component_changes : changes).Push(property);
  }

  ChangeStack changes;  // of the service's own properties
  ChangeStack component_changes;
  Announcements announcements;
  HandleList periodic;  // published at the end of every period, until they go
};

}  // namespace valmere
