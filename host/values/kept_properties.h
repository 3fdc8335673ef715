// What the service keeps in its property file, as a client reads it.
#pragma once

#include <string>
#include <vector>

#include "client/client.h"
#include "client/deadline.h"
#include "client/property.h"
#include "client/result.h"
#include "host/driver/driver.h"

namespace valmere::host {

struct KeptProperties {
  std::vector<client::Property> properties;  // all but those about the property file itself
  std::string property_file;                 // as the service names it now
  std::string override_file;

  bool operator==(const KeptProperties&) const = default;
};

// A client of the service over a handle of its own, which must go before the driver is ended.
client::Result<client::Client> ConnectToService(const Driver& driver);

// Which properties the service keeps, with their values. Errors as the client's.
client::Result<KeptProperties> ReadKept(client::Client& client, client::Deadline deadline);
// The values that `known` have now, and the files' names.
client::Result<KeptProperties> ReadAgain(client::Client& client, const KeptProperties& known,
                                         client::Deadline deadline);

// For code that reads and writes frames by itself and wants the files' names alone: the request,
// and what an answer holds.
client::Result<std::string> FileNamesFrame();
KeptProperties KeptIn(std::vector<client::Property> answer);

}  // namespace valmere::host
