// The texts that the tests exchange with the service.
#pragma once

#include <string>
#include <string_view>

namespace valmere::test {

// A property as messages name it: its component, and both its GUIDs joined by a colon.
struct Address {
  std::string component;
  std::string guids;
};

inline const Address kOwnComponent = {
    "955CFDC2-8EA6-478E-A927-7C870022EA03",
    "ADC1E631-2C12-4267-B128-95830EC9857D:955CFDC2-8EA6-478E-A927-7C870022EA03"};

inline std::string Quoted(std::string_view text) {
  return std::string(1, '"').append(text).append(1, '"');
}

inline std::string GetText(const Address& address) {
  return R"({"PropertyGetRequests": [{"Component": )" + Quoted(address.component) + R"(,"GUID": )" +
         Quoted(address.guids) + "}]}";
}

inline std::string SetText(const Address& address, std::string_view value) {
  return R"({"PropertySetRequests": [{"Component": )" + Quoted(address.component) + R"(,"GUID": )" +
         Quoted(address.guids) + R"(,"Value": )" + Quoted(value) + "}]}";
}

// One entry under "PropertyGetResponses", its keys in the order of the service's own.
inline std::string Entry(const Address& address, std::string_view component_name,
                         std::string_view group, std::string_view name, std::string_view status,
                         std::string_view value) {
  return R"({"Component": )" + Quoted(address.component) + R"(,"ComponentString": )" +
         Quoted(component_name) + R"(,"GUID": )" + Quoted(address.guids) + R"(,"GroupString": )" +
         Quoted(group) + R"(,"NameString": )" + Quoted(name) + R"(,"Status": )" + Quoted(status) +
         R"(,"Value": )" + Quoted(value) + "}";
}

inline std::string Responses(std::string_view entries) {
  return std::string(R"({"PropertyGetResponses": [)").append(entries).append("]}");
}

// What a component sends to publish a property, and what a get of it is then answered with.
inline std::string PublishedText(const Address& address, std::string_view value) {
  return Responses(
      Entry(address, "Some Component", "Some Group", "Some Name", "Successful", value));
}

inline std::string WithdrawText(const Address& address) {
  return Responses(Entry(address, "Some Component", "Some Group", "Some Name",
                         "Property No Longer Available", ""));
}

inline std::string NotFoundText(const Address& address) {
  return Responses(Entry(address, "Unknown Group", "Unknown Group", "Unknown Property",
                         "Property Not Found", "Invalid Value"));
}

inline std::string OwnComponentText() {
  return Responses(
      Entry(kOwnComponent, "Valmere", "Components", "Valmere", "Successful", "Valmere"));
}

}  // namespace valmere::test
