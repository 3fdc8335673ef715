// Whether what the service keeps has reached its property file.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "client/deadline.h"
#include "host/driver/driver.h"
#include "host/root/root_folder.h"
#include "host/values/kept_properties.h"
#include "host/values/override_lines.h"
#include "persist/file/property_file.h"
#include "platform/files.h"

namespace valmere::host {

// Purpose: waits until the service would come up with the same values if it were started anew. No
// message says that, so it is seen from outside: the service is asked for its values, and the
// property file is read.
// Owner: the program. Driver and root must outlive it.
// Threads: one at a time, except that PreviewLoad may run on another.
// Errors: none, except std::bad_alloc from PreviewLoad; what is not in the file is reported on
// standard error.
class StoredValues {
 public:
  // `files` are those below `root`.
  StoredValues(const Driver& driver, const RootFolder& root,
               std::shared_ptr<platform::FileSystem> files)
      : driver_(driver), root_(root), files_(files), override_(std::move(files)) {}
  StoredValues(const StoredValues&) = delete;
  StoredValues& operator=(const StoredValues&) = delete;

  // Before the service starts: reads what it is about to load.
  void PreviewStart() noexcept;
  // Before the service loads these files again, while it runs: the same.
  void PreviewLoad(const KeptProperties& files);
  // After the start: waits until the property file has what an override brought, and brings it to
  // the disk. Five seconds at most, and only as long as `give_up` says no.
  void WaitForOverride(const std::function<bool()>& give_up) noexcept;
  // After the start, before clients are served: reads the values that need not be stored.
  void ReadInitialValues() noexcept;
  // When no client is served any more: waits until all values are in the file, or the deadline
  // passes, and brings the file to the disk.
  void WaitUntilStored(client::Deadline deadline) noexcept;

 private:
  using Names = std::vector<std::string>;

  PropertyMap Lines(const std::string& path) const;
  bool WaitForOverrideLines(client::Deadline deadline, const std::function<bool()>& give_up) const;
  // False when the deadline passed first, which is reported.
  bool WaitForValues(client::Deadline deadline) const;
  Names MissingFrom(const KeptProperties& now) const;
  bool IsStored(const std::string& key, const std::string& value, const PropertyMap& lines) const;

  const Driver& driver_;
  const RootFolder& root_;
  const std::shared_ptr<platform::FileSystem> files_;
  OverrideLines override_;
  PropertyMap first_lines_;  // of the property file, when the service took its first values from it
  KeptProperties first_kept_;                        // its first values
  std::map<std::string, std::string> first_values_;  // the same, by the keys of their lines
};

}  // namespace valmere::host
