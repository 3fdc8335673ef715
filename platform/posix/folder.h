// What is done in a folder that is held open.
#pragma once

#include <string>

#include "platform/posix/descriptor.h"

namespace valmere::platform {

// A folder, held open, and a name in it.
struct Place {
  Descriptor folder;
  std::string name;
};

// Brings the file and its being in the folder to the disk. True also when there is no such file any
// more, of which nothing is to be kept.
bool SyncToDisk(const Place& place) noexcept;

}  // namespace valmere::platform
