// The properties that a command line asks to publish.
#pragma once

#include <string>
#include <variant>
#include <vector>

#include "client/property.h"
#include "tools/process/exit_code.h"

namespace valmere::tools {

struct PublishOptions {
  std::vector<std::string> assignments;  // NAME=VALUE
  bool hold = false;                     // there is no other way yet, and it is asked for
  std::string component = "valmere";     // of names that give none
  std::string component_guid;            // empty for the name-based one
  std::string group = "Desk";            // of names that give none
};

// A property that we publish, and the name that the user gave it.
struct Published {
  std::string name;
  client::Property property;
};

// Makes a property of each NAME=VALUE of the options. The GUID of a component is made of
// "component:NAME", that of a group of "group:NAME", that of a property of
// "property:GROUP GUID:NAME" (NameGuid). A Failure of kExitUsage for a text of another form, or for
// a property that is named twice.
std::variant<std::vector<Published>, Failure> MakePublication(const PublishOptions& options);

}  // namespace valmere::tools
