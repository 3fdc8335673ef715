// Loading the property file, with the override file that changes it once.
#pragma once

#include <functional>
#include <optional>
#include <vector>

#include "persist/file/property_file.h"
#include "platform/files.h"

namespace valmere {

// Gives each entry of `map` that `overrides` has too the value found there. Returns the lines that
// must be written for it, in key order, with the left sides of `overrides`; entries that `map`
// lacks are dropped.
std::vector<PropertyLine> MergeOverride(PropertyMap&& overrides, PropertyMap& map);

// What a load found.
struct LoadOutcome {
  PropertyFileResult main_file = PropertyFileResult::kRead;
  // Nothing when there is no override file, or the main file was not loaded.
  std::optional<PropertyFileResult> override_file;
  // False when an applied override file couldn't be removed: the next load applies it again.
  bool override_removed = true;

  // An override file that can't be read doesn't make the load fail.
  bool Succeeded() const { return main_file == PropertyFileResult::kRead; }
};

// Called with each line of the main file that an override changes; false when it won't be written.
using RequestWrite = std::function<bool(const PropertyLine& line)>;
// Whether the override file may be removed: asked last, as it may be another file by then.
using MayRemove = std::function<bool()>;

// Reads the main file into `map`; if that went well and there is an override file that reads well,
// applies it to `map`, asks for the lines to be written and removes it. An override file that
// doesn't read well is neither applied nor removed; one of which a line won't be written, or that
// may not be removed, stays for the next load. The main file is never its own override: it would be
// removed, and lost if the process ended before its lines are written again.
// std::bad_alloc, also from `request_write`: the override file is still there then, and the map may
// be half filled.
LoadOutcome LoadPropertyFiles(platform::FileSystem& files, platform::WidePathView main_path,
                              platform::WidePathView override_path, PropertyMap& map,
                              const RequestWrite& request_write,
                              const MayRemove& may_remove = nullptr);

}  // namespace valmere
