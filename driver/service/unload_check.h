// The proof that an unload left nothing behind.
#pragma once

#include "platform/files.h"

namespace valmere {

// Appends the bytes 00 01 02 03 to the marker file when no worker thread, event-flag object or
// property is alive; does nothing otherwise. Called when the service has gone.
void MarkCleanUnload(platform::FileSystem& files);

}  // namespace valmere
