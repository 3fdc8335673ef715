// Messages of the full length, made so that each keeps another part of the service at work for as
// long as one message can.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace valmere::test {

struct BusyMessage {
  std::string_view name;
  std::string text;
  bool changes_properties = false;
  int times = 2;  // how often a client sends it
};

// One for each request key and each kind of text that is long to read, of `bytes` each; what asks
// for all properties is short, and sent often.
std::vector<BusyMessage> MakeBusyMessages(std::size_t bytes);

// What requests for groups are to find: properties in the group without a GUID.
std::string EmptyGroupText(int properties);
// What requests for all are to find.
std::string ManyPropertiesText();

}  // namespace valmere::test
