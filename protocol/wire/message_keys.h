// The names that messages use on the wire.
#pragma once

#include <string_view>

namespace valmere::keys {

inline constexpr std::string_view kSetRequests = "PropertySetRequests";
inline constexpr std::string_view kGetRequests = "PropertyGetRequests";
inline constexpr std::string_view kGetAll = "GetAllProperties";
inline constexpr std::string_view kSubscribeRequests = "PropertySubscribeRequests";
inline constexpr std::string_view kSubscribeAll = "SubscribeAllCurrentAndNewProperties";
inline constexpr std::string_view kGetResponses = "PropertyGetResponses";
inline constexpr std::string_view kDisconnect = "Disconnect";

inline constexpr std::string_view kComponent = "Component";
inline constexpr std::string_view kComponentString = "ComponentString";
inline constexpr std::string_view kGuid = "GUID";
inline constexpr std::string_view kGroupString = "GroupString";
inline constexpr std::string_view kNameString = "NameString";
inline constexpr std::string_view kStatus = "Status";
inline constexpr std::string_view kValue = "Value";

}  // namespace valmere::keys
