// Where the process behind a socket works.
#pragma once

#include <string>

namespace valmere::tools {

// A path of the working folder of the process that listens at a socket, which for valmered is its
// root; empty when it can't be told. The path holds for as long as the process lives.
std::string WorkingFolderOfListener(const std::string& socket);

}  // namespace valmere::tools
