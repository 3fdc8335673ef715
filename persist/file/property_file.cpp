// A file with a wrong checksum is refused whole. Only then are its lines read one by one, and a bad
// one is skipped alone.
#include "persist/file/property_file.h"

#include <optional>
#include <utility>

#include "persist/file/crc16.h"
#include "persist/file/file_stream.h"

namespace valmere {
namespace {

bool ChecksumIsRight(std::string_view body, std::string_view trailer) {
  const unsigned stored = static_cast<unsigned char>(trailer[0]) |
                          static_cast<unsigned>(static_cast<unsigned char>(trailer[1])) << 8;
  return stored == Crc16(body);
}

// False when the line has no key or no "=".
bool TakeLine(std::string_view line, PropertyMap& map) {
  const std::size_t bar = line.find('|');
  if (bar == std::string_view::npos || bar == 0) return false;
  const std::size_t equals = line.find('=', bar);
  if (equals == std::string_view::npos) return false;

  const std::string_view key = line.substr(0, bar);
  auto entry = map.lower_bound(key);
  if (entry == map.end() || entry->first != key)
    entry = map.emplace_hint(entry, key, PropertyLine());
  entry->second.left_side = line.substr(0, equals);
  entry->second.value = line.substr(equals + 1);
  return true;
}

PropertyFileResult TakeLines(std::string_view body, PropertyMap& map) {
  PropertyFileResult result = PropertyFileResult::kRead;
  std::size_t start = 0;
  for (std::size_t end; (end = body.find('\n', start)) != std::string_view::npos; start = end + 1)
    if (!TakeLine(body.substr(start, end - start), map))
      result = PropertyFileResult::kMalformedLine;
  return result;
}

}  // namespace

std::string_view Describe(PropertyFileResult result) noexcept {
  switch (result) {
    case PropertyFileResult::kRead:
      return "it was read";
    case PropertyFileResult::kNotOpened:
      return "it is missing or can't be opened";
    case PropertyFileResult::kTooShort:
      return "it is too short";
    case PropertyFileResult::kNotReadable:
      return "it can't be read to its end";
    case PropertyFileResult::kWrongChecksum:
      return "its checksum is wrong";
    case PropertyFileResult::kMalformedLine:
      return "it holds a malformed line";
  }
  return "";
}

PropertyFileResult ReadPropertyFile(platform::FileSystem& files, platform::WidePathView path,
                                    PropertyMap& map) {
  FileStream stream(files, path, platform::OpenFlags::kRead);
  if (!stream.IsOpen()) return PropertyFileResult::kNotOpened;
  const std::optional<std::string> bytes = stream.ReadWhole();
  if (!bytes) return PropertyFileResult::kNotReadable;
  if (bytes->size() <= kPropertyFileTrailer) return PropertyFileResult::kTooShort;

  const std::size_t size = bytes->size() - kPropertyFileTrailer;
  const std::string_view body = std::string_view(*bytes).substr(0, size);
  if (!ChecksumIsRight(body, std::string_view(*bytes).substr(size)))
    return PropertyFileResult::kWrongChecksum;
  return TakeLines(body, map);
}

}  // namespace valmere
