#include "tests/platform/processor_time.h"

#include <time.h>

namespace valmere::test {

platform::Ticks ProcessorTime() {
  timespec time{};
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
  return platform::Ticks{time.tv_sec} * 1000 * platform::kTicksPerMillisecond + time.tv_nsec / 100;
}

}  // namespace valmere::test
