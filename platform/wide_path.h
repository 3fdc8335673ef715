// Paths are 16-bit strings; `/` and `\` both separate.
#pragma once

#include <string>
#include <string_view>

namespace valmere::platform {

using WidePath = std::u16string;
using WidePathView = std::u16string_view;

// The path as UTF-8; a lone surrogate becomes U+FFFD.
std::string NarrowPath(WidePathView path);
// UTF-8 as a path; a byte that is no UTF-8 becomes U+FFFD.
WidePath WidenPath(std::string_view text);
// The names of the path, each behind one "/": without empty names and ".", and with ".." resolved,
// as every file system here does it. Two paths with the same normal form lead to one file.
WidePath NormalPath(WidePathView path);

}  // namespace valmere::platform
