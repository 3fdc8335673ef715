// A value as the text that goes on the wire.
#pragma once

#include <string>

#include "json/json_value.h"

namespace valmere {

// Appends the text of `value`: no white space but one space after each colon, members in the order
// of their keys, floats with six significant digits. Texts and keys are written as they are: escape
// what comes from outside first. Recurses once per level of nesting.
void WriteJson(const JsonValue& value, std::string& out);

}  // namespace valmere
