// What a freshly installed device has on its file system.
#pragma once

#include "host/root/root_folder.h"

namespace valmere::host {

// Gives an empty root the version files and folders of a fresh device; one that holds something
// stays as it is. However this ends, by a kill at any moment or on a full disk, the root is whole
// afterwards, or the next call makes it so. Throws RootUnusable with the root as empty as it was,
// if the disk lets it.
void GiveSkeleton(const RootFolder& root);

}  // namespace valmere::host
