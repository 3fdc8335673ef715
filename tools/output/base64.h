// Bytes as text.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace valmere::tools {

// RFC 4648, with padding.
std::string EncodeBase64(std::string_view bytes);
// Nothing when the text is not what EncodeBase64 makes of some bytes.
std::optional<std::string> DecodeBase64(std::string_view text);

}  // namespace valmere::tools
