// Properties in the form that the user asked for.
#pragma once

#include <string>
#include <vector>

#include "client/property.h"
#include "tools/output/output.h"

namespace valmere::tools {

// What the text form prints of a property.
enum class TextForm {
  kValue,
  kAssignment,  // component/group/name=value
};

// One property as one line.
void PrintProperty(const client::Property& property, TextForm text, Output& out);
// Each as one line; in JSON they are the elements of one array.
void PrintProperties(const std::vector<const client::Property*>& properties, TextForm text,
                     Output& out);
// A change as one line: an assignment, or "component/group/name is gone".
void PrintChange(const client::Property& property, Output& out);

}  // namespace valmere::tools
