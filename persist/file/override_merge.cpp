// An override file is applied once: its values go into the main file and it is removed, so that a
// value set later isn't overridden again at the next start.
#include "persist/file/override_merge.h"

#include <utility>

namespace valmere {

std::vector<PropertyLine> MergeOverride(PropertyMap&& overrides, PropertyMap& map) {
  std::vector<PropertyLine> changed;
  for (auto& [key, line] : overrides) {
    const auto entry = map.find(key);
    if (entry == map.end()) continue;
    entry->second.value = line.value;
    changed.push_back(std::move(line));
  }
  return changed;
}

LoadOutcome LoadPropertyFiles(platform::FileSystem& files, platform::WidePathView main_path,
                              platform::WidePathView override_path, PropertyMap& map,
                              const RequestWrite& request_write, const MayRemove& may_remove) {
  LoadOutcome outcome;
  outcome.main_file = ReadPropertyFile(files, main_path, map);
  if (!outcome.Succeeded() ||
      platform::NormalPath(override_path) == platform::NormalPath(main_path) ||
      !files.Exists(override_path))
    return outcome;

  PropertyMap overrides;
  outcome.override_file = ReadPropertyFile(files, override_path, overrides);
  if (*outcome.override_file != PropertyFileResult::kRead) return outcome;
  for (const PropertyLine& line : MergeOverride(std::move(overrides), map))
    if (!request_write(line)) return outcome;
  if (may_remove && !may_remove()) return outcome;
  outcome.override_removed = files.Remove(override_path);
  return outcome;
}

}  // namespace valmere
