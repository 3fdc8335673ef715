// What an override file brings into the property file.
#pragma once

#include <memory>
#include <utility>

#include "client/mutex.h"
#include "persist/file/property_file.h"
#include "platform/files.h"
#include "platform/wide_path.h"

namespace valmere::host {

// Purpose: finds out before a load which lines of the property file an override file will change.
// That file is gone when the load is over; the lines are written later.
// Owner: StoredValues.
// Threads: any.
// Errors: std::bad_alloc; files that can't be read bring nothing, as for the service.
class OverrideLines {
 public:
  explicit OverrideLines(std::shared_ptr<platform::FileSystem> files) : files_(std::move(files)) {}

  // Looks at the files that the service is about to load. Remembers the lines that the override
  // brings; gives those of the property file as they will be then.
  PropertyMap Preview(platform::WidePathView main_path, platform::WidePathView override_path);
  // The remembered lines that `lines` lacks. None while the override file is there: the next start
  // takes it again.
  PropertyMap Missing(const PropertyMap& lines) const;
  void Clear();

 private:
  const std::shared_ptr<platform::FileSystem> files_;
  mutable client::Mutex lock_;
  PropertyMap awaited_ GUARDED_BY(lock_);
  platform::WidePath override_path_ GUARDED_BY(lock_);  // what brought the latest of them
};

}  // namespace valmere::host
