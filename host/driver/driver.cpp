#include "host/driver/driver.h"

#include <utility>

#include "driver/running_service.h"

namespace valmere::host {

bool Driver::Serve(std::shared_ptr<Listener> listener) {
  ValmereService* const service = RunningService();
  if (service == nullptr) return false;
  service->Serve(std::move(listener));
  return true;
}

}  // namespace valmere::host
