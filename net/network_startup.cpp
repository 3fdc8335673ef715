// The library counts starts and clean-ups, and a start that gave another version has counted too.
#include "net/network_startup.h"

namespace valmere {

NetworkStartup::NetworkStartup(StartFunction start, CleanUpFunction clean_up)
    : clean_up_(clean_up), started_(start() == platform::kSocketLibrary) {
  if (!started_) clean_up_();
}

NetworkStartup::~NetworkStartup() {
  if (started_) clean_up_();
}

}  // namespace valmere
