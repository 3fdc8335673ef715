// "valmere propfile": property files without the service.
#pragma once

#include <CLI/App.hpp>

#include "tools/invocation.h"

namespace valmere::tools {

// Adds the command and what it consists of; the one that the command line names sets
// `invocation.run`. Both must outlive the parsing.
void AddPropfileCommand(CLI::App& app, Invocation& invocation);

}  // namespace valmere::tools
