// Messages for people.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace valmere::tools {

// What a message says, one line for each thing: "get ...", "set ...", "subscribe to ...", "property
// ...". A text that is no message is one line, as it is.
std::vector<std::string> DescribeMessage(std::string_view text);

}  // namespace valmere::tools
