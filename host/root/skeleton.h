// The files of a freshly installed device.
#pragma once

#include "host/root/root_folder.h"

namespace valmere::host {

// Gives an empty root the version files and folders of a fresh device; one that holds something
// stays as it is. However this ends, by a kill at any moment or on a full disk, the root is whole
// afterwards, or the next call makes it so. Throws RootUnusable, and leaves the root as empty as it
// was if the disk allows.
void CreateSkeleton(const RootFolder& root);

}  // namespace valmere::host
