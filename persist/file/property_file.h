// Reading a property file: lines "key|names=value", each ended by "\n", then the CRC-16 of all of
// them, low byte first.
#pragma once

#include <cstddef>
#include <functional>
#include <map>
#include <string>
#include <string_view>

#include "platform/files.h"

namespace valmere {

// The trailer after the lines.
inline constexpr std::size_t kPropertyFileTrailer = 2;

// The two parts of a line: all before the "=" that ends the names, and all after it.
struct PropertyLine {
  std::string left_side;
  std::string value;

  friend bool operator==(const PropertyLine&, const PropertyLine&) = default;
};

// The lines by their keys (what stands before the first "|"), in byte order.
using PropertyMap = std::map<std::string, PropertyLine, std::less<>>;

// How the reading of a property file ended.
enum class PropertyFileResult {
  kRead,
  kNotOpened,      // missing, or it can't be opened
  kTooShort,       // no longer than its trailer
  kNotReadable,    // fewer bytes came than the file is long
  kWrongChecksum,  // the trailer isn't the CRC of the lines
  kMalformedLine,  // some line has no key or no "=": the others were taken all the same
};

// The result as the end of a sentence for the log: "it is missing or can't be opened".
std::string_view Describe(PropertyFileResult result) noexcept;

// Adds the lines of the file to `map`; a line replaces an earlier one of its key. Nothing is added
// unless the result is kRead or kMalformedLine. A last line without its "\n" is skipped: it is what
// a file ends with that was cut off and then given a good CRC. std::bad_alloc, with some of the
// lines added.
PropertyFileResult ReadPropertyFile(platform::FileSystem& files, platform::WidePathView path,
                                    PropertyMap& map);

}  // namespace valmere
