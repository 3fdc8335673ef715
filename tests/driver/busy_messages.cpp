#include "tests/driver/busy_messages.h"

#include "tests/driver/messages.h"

namespace valmere::test {
namespace {

// `begin`, as many pieces as fit, `end`. A '#' in a piece becomes a number that counts up.
std::string Filled(std::size_t bytes, const std::string& begin, const std::string& piece,
                   const std::string& end) {
  std::string text = begin;
  text.reserve(bytes);
  const std::size_t mark = piece.find('#');
  for (unsigned number = 0;; ++number) {
    std::string next = piece;
    if (mark != std::string::npos) next.replace(mark, 1, std::to_string(number));
    if (text.size() + next.size() + end.size() > bytes) return text + end;
    text += next;
  }
}

// A reply on so many properties takes a while to make; so many requests are never all served.
constexpr int kManyProperties = 2'000;
constexpr int kRepeats = 300;

const Address kZone = {kOwnComponent.component,
                       "E96B0063-C2EF-4545-92E1-AC4990BA1B37:187820B9-D046-4CC0-8E5C-00A0FA5CB411"};

std::string ZoneEntry(const std::string& value) {
  return R"({"Component":)" + Quoted(kZone.component) + R"(,"GUID":)" + Quoted(kZone.guids) +
         R"(,"Value":)" + Quoted(value) + "},";
}

std::string GroupText(const std::string& group, int properties) {
  std::string entries;
  for (int i = 0; i < properties; ++i)
    entries += (i > 0 ? "," : "") + Entry({"C", group + ":" + std::to_string(i)}, "Some Component",
                                          "", "Some Name", "Successful", "value");
  return Responses(entries);
}

}  // namespace

std::vector<BusyMessage> MakeBusyMessages(std::size_t bytes) {
  const auto filled = [&](const std::string& begin, const std::string& piece,
                          const std::string& end) { return Filled(bytes, begin, piece, end); };
  const std::string nested = std::string(4'000, '[') + std::string(4'000, ']') + ",";
  return {
      {"gets of a group", filled(R"({"PropertyGetRequests":[)", "1,", "1]}")},
      {"gets of properties",
       filled(R"({"PropertyGetRequests":[)", R"({"GUID":"g:#","Component":"c"},)", "1]}")},
      {"sets of an own property",
       filled(R"({"PropertySetRequests":[)", ZoneEntry("True") + ZoneEntry("False"), "1]}"), true},
      {"sets of a component's property",
       filled(R"({"PropertySetRequests":[)", R"({"Component":"C","GUID":":0","Value":"#"},)",
              "1]}"),
       true},
      {"subscriptions", filled(R"({"PropertySubscribeRequests":[)", R"({"GUID":"#"},)", "1]}")},
      {"publications",
       filled(R"({"PropertyGetResponses":[)", R"({"GUID":"#","Status":"Successful"},)", "1]}"),
       true},
      {"withdrawals",
       filled(R"({"PropertyGetResponses":[)",
              R"({"GUID":"#","Status":"Property No Longer Available"},)", "1]}"),
       true},
      {"gets of all", R"({"GetAllProperties":1})", false, kRepeats},
      {"subscriptions to all", R"({"SubscribeAllCurrentAndNewProperties":1})", false, kRepeats},
      {"numbers under no key of the service's", filled(R"({"a":[)", "1,", "1]}")},
      {"equal keys", filled("{", R"("a":1,)", R"("b":1})")},
      {"unordered keys", filled("{", R"("9#":1,"#":1,)", R"("b":1})")},
      {"nested lists", filled(R"({"a":[)", nested, "1]}")},
      {"small lists", filled(R"({"a":[)", "[1],", "[1]]}")},
      {"blanks", filled(R"({"a":1)", " ", "}")},
      {"bytes that are passed over", filled(R"({"a":1)", "~", "}")},
      {"a broken string", filled(R"({"a":")", R"(\")", R"(\q)")},
      {"broken strings", filled(R"({"a":)", R"("\q)", "}")},
      {"a long single-quoted string", filled(R"({"a":')", "x", "'}")},
      {"long escapes", filled(R"({"a":")", R"(\u0041)", R"("})")},
      {"a long number", filled(R"({"a":0.)", "7", "}")},
  };
}

std::string EmptyGroupText(int properties) {
  return GroupText("", properties);
}

std::string ManyPropertiesText() {
  return GroupText("G", kManyProperties);
}

}  // namespace valmere::test
