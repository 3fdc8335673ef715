// Which properties a command is about.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "client/property.h"

namespace valmere::tools {

// Purpose: picks properties by patterns in which * stands for any text, slashes included, ? for
//   one character and [...] for one of a set.
// Owner: a command.
// Threads: none of its own; const operations may run at the same time.
// Errors: none; a pattern that is none as such is compared as it is.
class PropertyPatterns {
 public:
  explicit PropertyPatterns(std::vector<std::string> patterns) : patterns_(std::move(patterns)) {}

  // True when there is no pattern, or one that matches "component/group/name", "group/name" or the
  // name. A name as Resolve takes it matches its property, with any characters in it.
  bool Match(const client::Property& property) const;
  // Pointers into `properties`, in the same order.
  std::vector<const client::Property*> Pick(const std::vector<client::Property>& properties) const;

 private:
  std::vector<std::string> patterns_;
};

}  // namespace valmere::tools
