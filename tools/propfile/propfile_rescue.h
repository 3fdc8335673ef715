// What can be read of a property file that was damaged.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "tools/propfile/propfile_text.h"

namespace valmere::tools {

// A piece of the file that is no line, or several of one kind in a row.
struct LeftOut {
  std::size_t first_line = 0;
  std::size_t last_line = 0;
  std::size_t begin = 0;  // bytes of the file, [begin, end)
  std::size_t end = 0;
  const char* why = "";
  std::string beginning;  // of its text, escaped
};

struct Rescue {
  std::vector<PropfileLine> lines;          // the good ones, in the file's order
  std::vector<LeftOut> left_out;            // the first kMostListed
  std::size_t unlisted = 0;                 // pieces beyond those
  std::size_t line_count = 0;               // good and bad
  std::optional<std::uint16_t> stored_crc;  // nothing when it is not there whole, and last
  std::uint16_t computed_crc = 0;           // of all that lies before the trailer

  bool crc_is_good() const { return stored_crc == computed_crc; }
};

// More of the service's own, which have 77 bytes at least, fit into no file that it takes.
inline constexpr std::size_t kMostRescuedLines = 250'000;
inline constexpr std::size_t kMostListed = 100;

// Takes the lines that the service would take, but for those that no service writes: with control
// characters or bytes that are no UTF-8 before their value, or NULs in it. Of a piece that is no
// line it takes an end that is one of the service's own. A last line without its line feed may have
// been cut off and is left out.
Rescue RescueLines(std::string_view bytes);

// The good lines as a file with the right CRC.
std::string SoundFile(const Rescue& rescue);

}  // namespace valmere::tools
