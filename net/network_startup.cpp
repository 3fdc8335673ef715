// Start and clean-up come in pairs: the library counts them, so one clean-up too many would take it
// away from another user in the process.
#include "net/network_startup.h"

namespace valmere {

NetworkStartup::NetworkStartup(StartFunction start, CleanUpFunction clean_up)
    : clean_up_(clean_up), started_(start()) {}

NetworkStartup::~NetworkStartup() {
  if (started_) clean_up_();
}

}  // namespace valmere
