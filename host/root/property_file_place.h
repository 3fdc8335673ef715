// Where the service keeps its settings, below the root.
#pragma once

namespace valmere::host {

inline constexpr const char* kStoreName = "Store";
inline constexpr const char* kPropertyFileName = "ValmereProperties.ini";

// The same as the service names them, until its properties name others.
inline constexpr const char16_t* kFirstPropertyFile = u"/Store/ValmereProperties.ini";
inline constexpr const char16_t* kFirstOverrideFile = u"/Store/ValmerePropertiesOverride.ini";

}  // namespace valmere::host
