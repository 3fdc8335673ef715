#include "tests/platform/wine.h"

namespace valmere::test {

bool InWine() {
  return false;
}

}  // namespace valmere::test
