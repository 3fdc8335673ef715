// A second reading of the message language, as slow and as plain as its rules, to compare the
// generated parser with.
#pragma once

#include <optional>
#include <string>

#include "json/json_value.h"

namespace valmere::test {

// The value of `text`; nothing when it is not one value. Throws as the parser does. For texts far
// from the nesting limit.
std::optional<JsonValue> ReferenceParse(const std::string& text);

}  // namespace valmere::test
