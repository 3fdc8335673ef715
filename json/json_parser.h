// The text of a message as a value.
#pragma once

#include <string>
#include <string_view>

#include "json/json_value.h"
#include "json/parse_stop.h"

namespace valmere {

// Parses `text`, which ends at its first NUL and is shorter than 2 GiB. A text that is not one
// value gives null and a line on standard error, unless there are too many of them. Bytes that
// begin no token are passed over; the accepted language is in json_scanner.l and json_grammar.y.
//
// Throws std::invalid_argument for a \u in single quotes without a hexadecimal number, and
// std::bad_alloc; nothing is left behind. A stack that finds no memory gives null, like a text that
// can't be read. If the scanner's buffers find no memory, the process ends. Any number of threads
// may parse at once; the stack that a parse needs does not grow with the nesting of its text.
JsonValue ParseJson(std::string_view text);

// The same without a copy of the text, which is overwritten. Two bytes are appended to it. When it
// is stopped it gives null within milliseconds, and writes nothing.
JsonValue ParseJsonInPlace(std::string& text, const ParseStop& stop = {});

// The same for a caller that reports errors itself, by ReportParseError. `error` becomes "syntax
// error", "memory exhausted" or empty.
JsonValue ParseJsonInPlace(std::string& text, const ParseStop& stop, std::string_view& error);
void ReportParseError(std::string_view error) noexcept;

}  // namespace valmere
