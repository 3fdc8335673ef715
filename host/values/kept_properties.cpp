// The service stores every property of its own component except the five that are about the
// property file: their values would come from the very file that they are about.
#include "host/values/kept_properties.h"

#include <algorithm>
#include <array>
#include <string_view>
#include <utility>

#include "client/message.h"

namespace valmere::host {
namespace {

constexpr char kServiceComponent[] = "955CFDC2-8EA6-478E-A927-7C870022EA03";
constexpr char kGeneralGroup[] = "99A61D40-20CE-41EA-A579-EB92C6ED94C6";
constexpr char kPropertyFile[] = "CD31503F-4949-40E1-BA2C-B2A88CF420F0";
constexpr char kOverrideFile[] = "C8B8886D-A101-47A9-BC60-477938C53648";
constexpr std::array<std::string_view, 5> kNotKept = {
    kPropertyFile,
    kOverrideFile,
    "A32AFFED-7C37-47FE-80DB-B21875E226BD",  // "Property Loading Error"
    "0D9B0F83-2282-4728-A78E-FE2FF4E3A13C",  // "Load Properties"
    "DDF2926A-0A65-4196-88FE-5858BC957E0B",  // "Store Properties"
};

std::vector<client::PropertyAddress> FileNames() {
  return {{kServiceComponent, kGeneralGroup, kPropertyFile},
          {kServiceComponent, kGeneralGroup, kOverrideFile}};
}

}  // namespace

std::string LineKey(const client::Property& property) {
  return property.group_guid + ":" + property.guid;
}

client::Result<client::Client> ConnectToService(const DriverLibrary& driver) {
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
    if (property.component != kServiceComponent || !property.found()) continue;
    if (property.guid == kPropertyFile) kept.property_file = property.value;
    if (property.guid == kOverrideFile) kept.override_file = property.value;
    if (std::ranges::find(kNotKept, property.guid) == kNotKept.end())
      kept.properties.push_back(std::move(property));
  }
  return kept;
}

}  // namespace valmere::host
