// Texts in UTF-8 as a terminal shows them.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace valmere::tools {

bool IsUtf8(std::string_view text);

// True when the user's locale shows UTF-8; main has to have set the locale.
bool TerminalShowsUtf8();

// The columns that a text without control characters takes. A byte that is no UTF-8 takes one.
std::size_t DisplayWidth(std::string_view text);

// `text` if it fits into `columns`, else as much of its beginning as leaves room for "…", which
// stands behind it; "..." where the locale does not show UTF-8.
std::string Shorten(std::string_view text, std::size_t columns);

}  // namespace valmere::tools
