// Properties as a tree.
#pragma once

#include <vector>

#include "client/property.h"
#include "tools/output/output.h"

namespace valmere::tools {

// Prints components, their groups and their properties with their values. Properties of one group
// have to stand together, and groups of one component. A terminal's lines are kept to its width.
void PrintTree(const std::vector<const client::Property*>& properties, Output& out);

}  // namespace valmere::tools
