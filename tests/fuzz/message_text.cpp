// A message text: the parser beside the plain reading of its rules, the writer, and what requests
// are read as.
#include <cmath>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "json/json_escape.h"
#include "json/json_parser.h"
#include "json/json_value.h"
#include "json/json_writer.h"
#include "protocol/message/property_message.h"
#include "protocol/wire/message_keys.h"
#include "tests/fuzz/fuzz_target.h"
#include "tests/json/reference_parser.h"
#include "tests/json/written.h"
#include "tests/support/frames.h"
#include "tests/support/message_records.h"
#include "tests/support/scripted_connection.h"

namespace valmere::test {
namespace {

// The plain reading takes the third power of a text's length.
constexpr std::size_t kLongestForReference = 24;

// Nothing for a text that the parser throws for.
std::optional<JsonValue> Parsed(const std::string& text) {
  try {
    return ParseJson(text);
  } catch (const std::invalid_argument&) {
    return std::nullopt;
  }
}

// What a value is written from: its texts escaped, as builders of messages escape theirs. A number
// beyond every limit has no text of its own, and a zero's sign is one that an integer has not.
JsonValue ForWriting(const JsonValue& value) {
  switch (value.kind()) {
    case JsonKind::kString:
      return JsonValue(EscapeJson(value.text()));
    case JsonKind::kFloat:
      if (!std::isfinite(value.real())) return JsonValue();
      return value.real() == 0 ? JsonValue(0.0) : value;
    case JsonKind::kArray: {
      JsonValue copy = JsonValue::Array();
      for (const JsonValue& element : value.elements())
        copy.Append(ForWriting(element));
      return copy;
    }
    case JsonKind::kObject: {
      std::vector<JsonMember> members;
      for (const JsonMember& member : value.members())
        members.emplace_back(JsonText(EscapeJson(member.key)), ForWriting(member.value));
      return JsonValue(JsonMembers(std::move(members)));
    }
    default:
      return value;
  }
}

void ReadAsTheRulesSay(const std::string& text, const std::optional<JsonValue>& parsed) {
  if (text.size() > kLongestForReference) return;
  try {
    const std::optional<JsonValue> reference = ReferenceParse(text);
    Require(parsed.has_value(), "the parser throws only where the rules do");
    Require(*parsed == reference.value_or(JsonValue()), "the parser gives what the rules give");
  } catch (const std::invalid_argument&) {
    Require(!parsed, "the parser throws where the rules do");
  }
}

void WriteAndReadAgain(const JsonValue& value) {
  const std::string written = Written(ForWriting(value));
  const std::optional<JsonValue> again = Parsed(written);
  Require(again.has_value(), "what was written can be read");
  Require(again->kind() == value.kind() || value.kind() == JsonKind::kFloat,
          "what was written is of its kind");
  Require(Written(ForWriting(*again)) == written, "what was read is written as it was");
}

struct Requests {
  explicit Requests(const PropertyMessage& message)
      : sets(SetRequestsOf(message)), responses(GetResponsesOf(message)) {
    for (const PropertySetRecord& set : sets)
      texts.insert(texts.end(), {set.guid, set.group_guid, set.component, set.value});
    for (const PropertyResponseRecord& response : responses)
      texts.insert(texts.end(),
                   {response.group_guid, response.group_name, response.guid, response.name,
                    response.value, response.status, response.component, response.component_name});
    for (const PropertyAddress& address : GetRequestsOf(message))
      addresses.push_back(address);
    for (const PropertyAddress& address : SubscribeRequestsOf(message))
      subscriptions.insert(subscriptions.end(),
                           {address.component, address.group_guid, address.guid});
  }

  std::vector<PropertySetRecord> sets;
  std::vector<PropertyResponseRecord> responses;
  std::vector<PropertyAddress> addresses;
  std::vector<std::string_view> texts;
  std::vector<std::string_view> subscriptions;
};

bool Read(PropertyMessage& message, const std::string& text) {
  ScriptedConnection connection(FieldsOf(text));
  return message.Read(connection);
}

// What a message asks for survives being said anew.
void SayRequestsAgain(const PropertyMessage& message) {
  const Requests requests(message);
  PropertyMessage said;
  said.SetRequests(requests.sets);
  said.GetResponses(requests.responses);
  said.SubscribeList({});
  for (const PropertyAddress& address : SubscribeRequestsOf(message))
    said.AddSubscribeEntry(address);
  PropertyMessage heard;
  Require(Read(heard, Written(said.object())), "requests that were built can be read");
  const Requests again(heard);
  Require(again.texts == requests.texts, "records are heard as they were said");
  Require(again.subscriptions == requests.subscriptions, "addresses are heard as they were said");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  const std::optional<JsonValue> value = Parsed(text);
  ReadAsTheRulesSay(text, value);
  if (!value) return 0;
  WriteAndReadAgain(*value);
  PropertyMessage message;
  const bool read = Read(message, text);
  Require(read == (value->kind() == JsonKind::kObject), "an object is a message, and nothing else");
  if (read) SayRequestsAgain(message);
  return 0;
}

}  // namespace valmere::test
