// The service's own properties that programs know by themselves. Internal to this system: it is not
// installed.
#pragma once

#include <string>

#include "client/property.h"

namespace valmere::client {

inline constexpr char kServiceComponent[] = "955CFDC2-8EA6-478E-A927-7C870022EA03";

inline constexpr char kGeneralGroup[] = "99A61D40-20CE-41EA-A579-EB92C6ED94C6";
inline constexpr char kErrorGroup[] = "2EBF9DEF-D51C-47FE-935E-5EDCC530B867";

inline PropertyAddress StoreCommand() {
  return {kServiceComponent, kGeneralGroup, "DDF2926A-0A65-4196-88FE-5858BC957E0B"};
}
inline PropertyAddress LoadCommand() {
  return {kServiceComponent, kGeneralGroup, "0D9B0F83-2282-4728-A78E-FE2FF4E3A13C"};
}
inline PropertyAddress PropertyFileName() {
  return {kServiceComponent, kGeneralGroup, "CD31503F-4949-40E1-BA2C-B2A88CF420F0"};
}
inline PropertyAddress OverrideFileName() {
  return {kServiceComponent, kGeneralGroup, "C8B8886D-A101-47A9-BC60-477938C53648"};
}
// "True" when the last load failed.
inline PropertyAddress LoadingError() {
  return {kServiceComponent, kErrorGroup, "A32AFFED-7C37-47FE-80DB-B21875E226BD"};
}
// In milliseconds.
inline PropertyAddress PublishingPeriod() {
  return {kServiceComponent, kGeneralGroup, "DA821DC5-948D-4659-9B52-177E4C102129"};
}

// True for what the service keeps in its property file: all of its own but the five that are about
// that file, whose values would come from the file that they speak of.
inline bool IsStored(const PropertyAddress& address) {
  return address.component == kServiceComponent && address != PropertyFileName() &&
         address != OverrideFileName() && address != LoadingError() && address != LoadCommand() &&
         address != StoreCommand();
}

// The key of a property's line in that file.
inline std::string LineKey(const Property& property) {
  return property.group_guid + ":" + property.guid;
}

}  // namespace valmere::client
