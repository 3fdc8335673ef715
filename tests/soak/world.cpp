#include "tests/soak/world.h"

#include <charconv>
#include <utility>

#include "client/driver_transport.h"
#include "driver/prn.h"

namespace valmere::test {

std::string Dice::Text() {
  if (OneIn(50)) return std::string(500 + Below(4000), 'x');
  if (OneIn(10)) return "\"quoted\" \\ \xc3\xa9\n\t" + std::to_string(Below(1000));
  return std::to_string(Below(1000000));
}

std::string Numbered(std::uint64_t number, std::string_view text) {
  return std::to_string(number) + "|" + std::string(text);
}

std::uint64_t NumberOf(std::string_view value) {
  std::uint64_t number = 0;
  std::from_chars(value.data(), value.data() + value.size(), number);
  return number;
}

Property MakeProperty(const PropertyAddress& address, std::string value) {
  Property property;
  property.component = address.component;
  property.component_name = "Component " + address.component;
  property.group_guid = address.group_guid;
  property.group_name = "Group " + address.group_guid;
  property.guid = address.guid;
  property.name = "Property " + address.guid;
  property.value = std::move(value);
  return property;
}

std::string NameOf(const PropertyAddress& address) {
  return address.component + "/" + address.group_guid + "/" + address.guid;
}

client::Client Connect() {
  auto transport = client::OpenDriver({PRN_Open, PRN_Close, PRN_Read, PRN_Write}, 1);
  return client::Client(std::move(transport.value()));
}

Deadline Patience() {
  return Deadline::After(kPatience);
}

}  // namespace valmere::test
