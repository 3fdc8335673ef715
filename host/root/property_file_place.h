// Where the service keeps its settings, below the root.
#pragma once

namespace valmere::host {

inline constexpr const char* kStoreName = "Store";
inline constexpr const char* kPropertyFileName = "ValmereProperties.ini";

}  // namespace valmere::host
