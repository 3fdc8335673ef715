// What the kernel has of a file, on the disk.
#pragma once

#include <string>

namespace valmere::host {

// Returns when the file `name` in `folder` below `root`, and its place in the folder, outlast a
// loss of power. False when the disk does not take them, or they are not what they should be; links
// below the root are not followed.
bool SyncToDisk(const std::string& root, const std::string& folder, const std::string& name);

}  // namespace valmere::host
