// The service's reader takes a file or refuses it; a person who repairs one wants to know what is
// wrong in which line. So the lines are taken apart here once more, by the same rules; a test holds
// the two against each other.
#include "tools/propfile/propfile_text.h"

#include <algorithm>
#include <cstdio>

#include "persist/file/crc16.h"
#include "persist/file/property_file.h"

namespace valmere::tools {
namespace {

std::vector<PropfileLine> TakeLines(std::string_view body) {
  std::vector<PropfileLine> lines;
  for (std::size_t start = 0; start < body.size();) {
    const std::size_t end = body.find('\n', start);
    PropfileLine line = TakePropfileLine(body.substr(start, end - start));
    if (end == std::string_view::npos) line.fault = "its line feed is missing";
    line.number = lines.size() + 1;
    line.start = start;
    lines.push_back(std::move(line));
    start = end == std::string_view::npos ? body.size() : end + 1;
  }
  return lines;
}

std::uint16_t TrailerOf(std::string_view bytes) {
  const auto low = static_cast<unsigned char>(bytes[bytes.size() - 2]);
  const auto high = static_cast<unsigned char>(bytes[bytes.size() - 1]);
  return static_cast<std::uint16_t>(low | high << 8);
}

}  // namespace

const char* FaultIn(std::string_view line) {
  const std::size_t bar = line.find('|');
  if (bar == std::string_view::npos) return "there is no \"|\"";
  if (bar == 0) return "there is nothing before the first \"|\"";
  if (line.find('=', bar) == std::string_view::npos)
    return "there is no \"=\" after the first \"|\"";
  return nullptr;
}

PropfileLine TakePropfileLine(std::string_view text) {
  PropfileLine line;
  line.text = text;
  if (const char* fault = FaultIn(text)) {
    line.fault = fault;
    return line;
  }
  const std::size_t bar = text.find('|');
  const std::size_t equals = text.find('=', bar);
  line.key = text.substr(0, bar);
  line.names = text.substr(bar + 1, equals - bar - 1);
  line.value = text.substr(equals + 1);
  return line;
}

PropfileText ReadPropfileText(std::string_view bytes) {
  PropfileText file;
  file.size = bytes.size();
  if (bytes.size() >= kPropertyFileTrailer) {
    file.body = bytes.substr(0, bytes.size() - kPropertyFileTrailer);
    file.stored_crc = TrailerOf(bytes);
  }
  file.lines = TakeLines(file.body);
  file.computed_crc = Crc16(file.body);
  return file;
}

std::vector<PropfileFault> FaultsOf(const PropfileText& file) {
  std::vector<PropfileFault> faults;
  if (file.size <= kPropertyFileTrailer)
    faults.push_back({0, "it is too short: " + std::to_string(file.size) + " bytes"});
  if (file.stored_crc && !file.crc_is_good())
    faults.push_back({0, "the CRC is wrong: " + CrcText(*file.stored_crc) + " is stored, " +
                             CrcText(file.computed_crc) + " computed"});
  for (const PropfileLine& line : file.lines)
    if (!line.fault.empty()) faults.push_back({line.number, line.fault});
  return faults;
}

bool Means(std::string_view wanted, const PropfileLine& line) {
  if (!line.fault.empty()) return false;
  if (wanted == line.key || wanted == line.names) return true;
  // Either part of the names may hold a colon, so each one is tried.
  for (std::size_t colon = line.names.find(':'); colon != std::string::npos;
       colon = line.names.find(':', colon + 1)) {
    std::string with_slash = line.names;
    with_slash[colon] = '/';
    if (wanted == with_slash || wanted == std::string_view(line.names).substr(colon + 1))
      return true;
  }
  return false;
}

std::string WithValue(const PropfileText& file, const PropfileLine& line, std::string_view value) {
  std::string body = file.body;
  if (!body.ends_with('\n')) body += '\n';
  const std::size_t value_start = line.start + line.text.size() - line.value.size();
  return body.replace(value_start, line.value.size(), value);
}

std::string_view BodyOfEdited(std::string_view bytes) {
  std::size_t good_end = 0;
  for (const PropfileLine& line : TakeLines(bytes))
    if (line.fault.empty()) good_end = line.start + line.text.size() + 1;
  if (bytes.size() - good_end <= kPropertyFileTrailer + 1) return bytes.substr(0, good_end);
  return bytes.substr(0, bytes.size() - kPropertyFileTrailer);
}

std::string Sealed(std::string body) {
  const std::uint16_t crc = Crc16(body);
  body += static_cast<char>(crc & 0xff);
  body += static_cast<char>(crc >> 8);
  return body;
}

std::string CrcText(std::uint16_t crc) {
  char text[5];
  std::snprintf(text, sizeof text, "%04X", static_cast<unsigned>(crc));
  return text;
}

}  // namespace valmere::tools
