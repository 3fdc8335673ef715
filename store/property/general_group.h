// Groups of the device's property catalogue that several components publish in.
#pragma once

#include <string_view>

namespace valmere {

inline constexpr std::string_view kGeneralGroup = "General";
inline constexpr std::string_view kGeneralGroupGuid = "99A61D40-20CE-41EA-A579-EB92C6ED94C6";

}  // namespace valmere
