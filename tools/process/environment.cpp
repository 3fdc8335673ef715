#include "tools/process/environment.h"

#include <cstdlib>

namespace valmere::tools {

std::string Variable(const char* name) {
  const char* value = std::getenv(name);
  return value != nullptr ? value : "";
}

}  // namespace valmere::tools
