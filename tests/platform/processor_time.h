// The processor time that this process has used so far. How it is asked for lies in a folder for
// each system: the C library's clock is the wall's on some.
#pragma once

#include "platform/kernel.h"

namespace valmere::test {

platform::Ticks ProcessorTime();

}  // namespace valmere::test
