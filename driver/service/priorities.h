// Thread priorities on the device's scale of 0 to 255; smaller is more urgent.
#pragma once

namespace valmere {

inline constexpr int kRequestPriority = 249;     // work that a client waits for
inline constexpr int kStorePriority = 251;       // lines on their way to the property file
inline constexpr int kBackgroundPriority = 253;  // work that no client waits for

}  // namespace valmere
