#include "tests/platform/wine.h"

namespace valmere::testing {

bool InWine() {
  return false;
}

}  // namespace valmere::testing
