#include "tests/kill/property_file.h"

#include <fstream>
#include <iterator>
#include <stdexcept>

namespace valmere::test {
namespace {

constexpr std::size_t kTrailer = 2;

std::string TrailerOf(std::string_view body) {
  unsigned crc = 0;
  for (const char byte : body) {
    crc ^= static_cast<unsigned char>(byte);
    for (int bit = 0; bit < 8; ++bit)
      crc = (crc >> 1) ^ ((crc & 1) != 0 ? 0xA001U : 0U);
  }
  crc = ~crc & 0xFFFF;
  return {static_cast<char>(crc & 0xFF), static_cast<char>(crc >> 8)};
}

// The fault of a line, or nothing.
std::string AddLine(std::string_view line, PropertyFile& file) {
  const std::size_t bar = line.find('|');
  const std::size_t equals = line.find('=', bar == std::string_view::npos ? 0 : bar);
  if (bar == 0 || bar == std::string_view::npos || equals == std::string_view::npos)
    return "a line is malformed: " + std::string(line);
  const bool is_new = file.lines.emplace(line.substr(0, equals), line.substr(equals + 1)).second;
  return is_new ? "" : "a line is there twice: " + std::string(line);
}

std::string AddLines(std::string_view body, PropertyFile& file) {
  while (!body.empty()) {
    const std::size_t end = body.find('\n');
    if (end == std::string_view::npos) return "the last line is cut off";
    std::string fault = AddLine(body.substr(0, end), file);
    if (!fault.empty()) return fault;
    body.remove_prefix(end + 1);
  }
  return "";
}

}  // namespace

PropertyFile ReadPropertyFile(const std::string& path) {
  PropertyFile file;
  std::ifstream stream(path, std::ios::binary);
  const std::string bytes(std::istreambuf_iterator<char>(stream), {});
  const std::string_view all = bytes;
  if (all.size() <= kTrailer) {
    file.fault = "it has " + std::to_string(all.size()) + " bytes";
  } else if (const auto body = all.substr(0, all.size() - kTrailer);
             all.substr(body.size()) != TrailerOf(body)) {
    file.fault = "its checksum is wrong at " + std::to_string(all.size()) + " bytes";
  } else {
    file.fault = AddLines(body, file);
  }
  return file;
}

void WritePropertyFile(const std::string& path, const std::vector<std::string>& lines) {
  std::string body;
  for (const std::string& line : lines) {
    body += line + "\n";
  }
  std::ofstream file(path, std::ios::binary);
  if (!(file << body << TrailerOf(body)).flush())
    throw std::runtime_error(path + " cannot be written");
}

}  // namespace valmere::test
