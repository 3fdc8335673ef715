#include "tests/platform/processor_time.h"

#include <windows.h>

namespace valmere::test {
namespace {

platform::Ticks TicksOf(const FILETIME& time) {
  return platform::Ticks{time.dwHighDateTime} << 32 | time.dwLowDateTime;
}

}  // namespace

platform::Ticks ProcessorTime() {
  FILETIME created{};
  FILETIME ended{};
  FILETIME kernel{};
  FILETIME user{};
  GetProcessTimes(GetCurrentProcess(), &created, &ended, &kernel, &user);
  return TicksOf(kernel) + TicksOf(user);
}

}  // namespace valmere::test
