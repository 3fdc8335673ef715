// Version files come from the device's build tools in more than one shape, so the reader takes what
// it can find and answers "Error" to the rest; the start of the service never hangs on them.
#include "driver/service/ini_reader.h"

#include <cstddef>
#include <optional>
#include <string_view>

#include "persist/file/file_stream.h"

namespace valmere {
namespace {

// The first line that holds the key, and all of the line that is before the key taken off.
std::optional<std::string_view> FindFromKey(std::string_view text, std::string_view key) {
  std::size_t start = 0;
  while (start < text.size()) {
    const std::string_view line = text.substr(start, text.find('\n', start) - start);
    const std::size_t at = line.find(key);
    if (at != std::string_view::npos) return line.substr(at);
    start += line.size() + 1;
  }
  return std::nullopt;
}

std::optional<std::string_view> ValueIn(std::string_view line) {
  const std::size_t equals = line.find('=');
  if (equals == std::string_view::npos) return std::nullopt;
  const std::size_t quote = line.find('"', equals);
  if (quote == std::string_view::npos) return std::nullopt;
  const std::size_t last = line.find_last_not_of("\"\\\r\n");
  if (last == std::string_view::npos || last <= quote) return std::nullopt;
  return line.substr(quote + 1, last - quote);
}

}  // namespace

// The caller hands both texts over.
// NOLINTNEXTLINE(performance-unnecessary-value-param)
std::string ReadIniValue(platform::FileSystem& files, platform::WidePath path, std::string key) {
  FileStream stream(files, path, platform::OpenFlags::kRead);
  if (const std::optional<std::string> text = stream.ReadWhole())
    if (const std::optional<std::string_view> line = FindFromKey(*text, key))
      if (const std::optional<std::string_view> value = ValueIn(*line)) return std::string(*value);
  return "Error";
}

}  // namespace valmere
