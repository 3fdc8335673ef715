// Operations in a folder that is held open.
#pragma once

#include <string>

#include "platform/posix/descriptor.h"

namespace valmere::platform {

// A folder, held open, and a name in it.
struct Place {
  Descriptor folder;
  std::string name;
};

// Syncs the file and its entry in the folder. True also when there is no such file any more.
bool SyncToDisk(const Place& place) noexcept;

}  // namespace valmere::platform
