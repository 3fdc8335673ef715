#include "host/values/kept_properties.h"

#include <utility>

#include "client/message.h"
#include "client/service_properties.h"

namespace valmere::host {
namespace {

std::vector<client::PropertyAddress> FileNames() {
  return {client::PropertyFileName(), client::OverrideFileName()};
}

}  // namespace

client::Result<client::Client> ConnectToService(const Driver& driver) {
  auto transport = client::OpenDriver(driver.entry_points(), driver.context());
  if (!transport) return transport.error();
  return client::Client(std::move(*transport));
}

client::Result<KeptProperties> ReadKept(client::Client& client, client::Deadline deadline) {
  auto answer = client.GetAll(deadline);
  if (!answer) return answer.error();
  return KeptIn(std::move(*answer));
}

client::Result<KeptProperties> ReadAgain(client::Client& client, const KeptProperties& known,
                                         client::Deadline deadline) {
  std::vector<client::PropertyAddress> addresses = FileNames();
  for (const client::Property& property : known.properties)
    addresses.push_back(property.address());
  auto answer = client.Get(addresses, deadline);
  if (!answer) return answer.error();
  return KeptIn(std::move(*answer));
}

client::Result<std::string> FileNamesFrame() {
  return client::GetFrame(FileNames());
}

KeptProperties KeptIn(std::vector<client::Property> answer) {
  KeptProperties kept;
  for (client::Property& property : answer) {
    if (property.component != client::kServiceComponent || !property.found()) continue;
    const client::PropertyAddress address = property.address();
    if (address == client::PropertyFileName()) kept.property_file = property.value;
    if (address == client::OverrideFileName()) kept.override_file = property.value;
    if (client::IsStored(address)) kept.properties.push_back(std::move(property));
  }
  return kept;
}

}  // namespace valmere::host
