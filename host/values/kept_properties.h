// What the service keeps in its property file, as it tells a client.
#pragma once

#include <string>
#include <vector>

#include "client/client.h"
#include "client/deadline.h"
#include "client/property.h"
#include "client/result.h"
#include "host/driver/driver_library.h"

namespace valmere::host {

struct KeptProperties {
  std::vector<client::Property> properties;  // all but those that tell of the property file itself
  std::string property_file;                 // as the service names it now
  std::string override_file;

  bool operator==(const KeptProperties&) const = default;
};

// A client of the service over a handle of its own, which must go before the driver is ended.
client::Result<client::Client> ConnectToService(const DriverLibrary& driver);

// Which properties the service keeps, with their values. Errors as the client's.
client::Result<KeptProperties> FindKept(client::Client& client, client::Deadline deadline);
// The values that `known` have now, and the files' names.
client::Result<KeptProperties> LookAgain(client::Client& client, const KeptProperties& known,
                                         client::Deadline deadline);

// The same for who reads and writes frames himself, and wants the files' names alone: what to ask,
// and what came.
client::Result<std::string> FileNamesFrame();
KeptProperties KeptIn(std::vector<client::Property> answer);

}  // namespace valmere::host
