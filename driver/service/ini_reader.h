// Reading one value out of a version file.
#pragma once

#include <string>

#include "platform/files.h"

namespace valmere {

// The value of `key` in a file of lines like OSVersion="8.3.6250.0", opened and read anew. The
// first line that holds the key anywhere counts, even inside a longer one. The value runs from the
// first double quote after the "=" to the end of the line, less the quotes, backslashes and line
// ends there. "Error" when it can't be read, whatever the reason.
// Both texts are handed over to the call. Any thread; std::bad_alloc.
std::string ReadIniValue(platform::FileSystem& files, platform::WidePath path, std::string key);

}  // namespace valmere
