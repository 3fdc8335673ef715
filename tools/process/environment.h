// The variables of the environment, which nothing here sets.
#pragma once

#include <string>

namespace valmere::tools {

// Empty when there is none.
std::string Variable(const char* name);

}  // namespace valmere::tools
