// A preview is a load as the service does it, except that it requests no line and removes nothing.
#include "host/values/override_lines.h"

#include <utility>

#include "persist/file/override_merge.h"

namespace valmere::host {

PropertyMap OverrideLines::Preview(platform::WidePathView main_path,
                                   platform::WidePathView override_path) {
  PropertyMap lines;
  PropertyMap brought;
  const auto remember = [&](const PropertyLine& line) {
    brought.insert_or_assign(line.left_side.substr(0, line.left_side.find('|')), line);
    return true;
  };
  LoadPropertyFiles(*files_, main_path, override_path, lines, remember, [] { return false; });
  if (brought.empty()) return lines;
  const client::MutexLock hold(lock_);
  brought.merge(awaited_);
  awaited_ = std::move(brought);
  override_path_ = override_path;
  return lines;
}

PropertyMap OverrideLines::Missing(const PropertyMap& lines) const {
  const client::MutexLock hold(lock_);
  PropertyMap missing;
  if (awaited_.empty() || files_->Exists(override_path_)) return missing;
  for (const auto& [key, line] : awaited_) {
    const auto found = lines.find(key);
    if (found == lines.end() || found->second.value != line.value) missing.emplace(key, line);
  }
  return missing;
}

void OverrideLines::Clear() {
  const client::MutexLock hold(lock_);
  awaited_.clear();
}

}  // namespace valmere::host
