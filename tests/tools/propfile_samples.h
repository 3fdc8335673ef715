// Lines of property files, as the service writes them.
#pragma once

#include <string>

namespace valmere::test {

inline const std::string kSomeGroup = "99A61D40-20CE-41EA-A579-EB92C6ED94C6";
inline const std::string kPeriodLine =
    kSomeGroup + ":DA821DC5-948D-4659-9B52-177E4C102129|General:Period=750";
inline const std::string kZoneLine =
    kSomeGroup + ":CD31503F-4949-40E1-BA2C-B2A88CF420F0|Debug Zone:Init=True";
inline const std::string kBarLine =
    kSomeGroup + ":C8B8886D-A101-47A9-BC60-477938C53648|General:Name=a=b|c";
inline const std::string kThreeLines = kPeriodLine + "\n" + kZoneLine + "\n" + kBarLine + "\n";

}  // namespace valmere::test
