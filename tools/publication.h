// The properties that a command line asks to publish.
#pragma once

#include <string>
#include <variant>
#include <vector>

#include "client/property.h"
#include "tools/exit_code.h"
#include "tools/options.h"

namespace valmere::tools {

// A property that we publish, and the name that the user gave it.
struct Published {
  std::string name;
  client::Property property;
};

// Makes a property of each NAME=VALUE of the options. The GUID of a component is made of
// "component:NAME", that of a group of "group:NAME", that of a property of
// "property:GROUP GUID:NAME" (NameGuid). A Failure of kExitUsage for a text of another form, or for
// a property that is named twice.
std::variant<std::vector<Published>, Failure> MakePublication(const Options& options);

}  // namespace valmere::tools
