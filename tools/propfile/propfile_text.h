// A property file's bytes taken apart without the service, faults and all.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace valmere::tools {

// One line as it stands in the file, good or not.
struct PropfileLine {
  std::size_t number = 0;  // from 1
  std::size_t start = 0;   // where it begins in the body
  std::string text;        // without its line feed
  std::string key;         // these three are empty when there is a fault
  std::string names;
  std::string value;
  std::string fault;  // why the service passes it over; empty when it takes it
};

// What is wrong with a file.
struct PropfileFault {
  std::size_t line = 0;  // 0 for the file as a whole
  std::string text;
};

struct PropfileText {
  std::size_t size = 0;  // of the whole file
  std::string body;      // all but the trailer
  std::vector<PropfileLine> lines;
  std::optional<std::uint16_t> stored_crc;  // nothing when the file is too short for one
  std::uint16_t computed_crc = 0;

  bool crc_is_good() const { return stored_crc == computed_crc; }
};

PropfileText ReadPropfileText(std::string_view bytes);

// Why the service passes a line over, which comes without its line feed; null when it takes it.
const char* FaultIn(std::string_view line);

// A line taken apart; the caller knows its number and where it begins.
PropfileLine TakePropfileLine(std::string_view line);

// Everything that makes the service refuse the file or pass over a line; empty for a sound file.
std::vector<PropfileFault> FaultsOf(const PropfileText& file);

// True when `wanted` is the line's key, its names, or the end of its names after a colon; a slash
// may stand for that colon ("General/Speed" for "General:Speed").
bool Means(std::string_view wanted, const PropfileLine& line);

// The body with another value in `line`, which must be one of the file's. A last line without its
// line feed gets one.
std::string WithValue(const PropfileText& file, const PropfileLine& line, std::string_view value);

// The part of a file that somebody edited which is lines: what follows the last good line is an old
// trailer when it is no longer than one and the line feed that an editor adds, and the file's last
// two bytes are one otherwise.
std::string_view BodyOfEdited(std::string_view bytes);

// The body with its trailer.
std::string Sealed(std::string body);

// Four hexadecimal digits.
std::string CrcText(std::uint16_t crc);

}  // namespace valmere::tools
