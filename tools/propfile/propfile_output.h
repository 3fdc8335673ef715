// How lines of property files are printed.
#pragma once

#include <vector>

#include "tools/output/output.h"
#include "tools/propfile/propfile_text.h"

namespace valmere::tools {

// A table on a terminal, a line with tabs for each elsewhere, or a JSON object for each. A line
// with a fault shows its text.
void PrintPropfileLines(const std::vector<PropfileLine>& lines, Output& out);

}  // namespace valmere::tools
