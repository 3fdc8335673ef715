// Deadlines of tests.
#pragma once

#include <chrono>

#include "client/deadline.h"
#include "tests/client/fake_service.h"

namespace valmere::test {
using namespace client;

// Never reached by what works.
inline Deadline Soon() {
  return Deadline::After(test::kPatience);
}
inline Deadline Past() {
  return Deadline::After(std::chrono::milliseconds(0));
}

}  // namespace valmere::test
