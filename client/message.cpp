// Texts are escaped when a value is made of them, because the writer writes them as they are. An
// entry that lacks a key reads as empty there, as the service reads it.
#include "client/message.h"

#include <exception>
#include <utility>

#include "json/json_escape.h"
#include "json/json_parser.h"
#include "json/json_value.h"
#include "json/json_writer.h"
#include "protocol/wire/message_frame.h"
#include "protocol/wire/message_keys.h"

namespace valmere::client {
namespace {

JsonValue Text(std::string_view text) {
  return JsonValue(EscapeJson(text));
}

// The two GUIDs travel as one text, joined by a colon.
JsonValue AddressEntry(const PropertyAddress& address) {
  JsonValue entry = JsonValue::Object();
  entry[keys::kGuid] = Text(address.group_guid + ":" + address.guid);
  entry[keys::kComponent] = Text(address.component);
  return entry;
}

JsonValue PropertyEntry(const Property& property, std::string_view status) {
  JsonValue entry = AddressEntry(property.address());
  entry[keys::kComponentString] = Text(property.component_name);
  entry[keys::kGroupString] = Text(property.group_name);
  entry[keys::kNameString] = Text(property.name);
  entry[keys::kStatus] = Text(status);
  entry[keys::kValue] = Text(property.value);
  return entry;
}

Result<std::string> FrameOf(const JsonValue& message) {
  std::string frame;
  BeginFrame(frame);
  WriteJson(message, frame);
  const std::size_t length = frame.size() - kFrameHeaderBytes;
  if (length > kMaximumMessageBytes)
    return Error{ErrorKind::kInvalid, "a request of " + std::to_string(length) +
                                          " bytes is longer than the service takes (" +
                                          std::to_string(kMaximumMessageBytes) + ")"};
  EndFrame(frame);
  return frame;
}

JsonValue AddressEntries(std::span<const PropertyAddress> addresses) {
  JsonValue entries = JsonValue::Array();
  for (const PropertyAddress& address : addresses) {
    entries.Append(AddressEntry(address));
  }
  return entries;
}

Result<std::string> FrameOf(std::string_view key, JsonValue value) {
  JsonValue message = JsonValue::Object();
  message[key] = std::move(value);
  return FrameOf(message);
}

// A request for a property that nobody has.
JsonValue ConfirmationRequest() {
  const PropertyAddress nobodys{"none", "none", "none"};
  return AddressEntries({&nobodys, 1});
}

Result<std::string> ConfirmedFrame(std::string_view key, JsonValue value) {
  JsonValue message = JsonValue::Object();
  message[key] = std::move(value);
  message[keys::kGetRequests] = ConfirmationRequest();
  return FrameOf(message);
}

std::string TextOf(const JsonValue& entry, std::string_view key) {
  const JsonValue* member = entry.Find(key);
  return member != nullptr ? std::string(member->text()) : std::string();
}

PropertyAddress AddressOf(const JsonValue& entry) {
  PropertyAddress address;
  address.component = TextOf(entry, keys::kComponent);
  address.group_guid = TextOf(entry, keys::kGuid);
  const std::size_t colon = address.group_guid.find(':');
  if (colon == std::string::npos) {
    address.guid = address.group_guid;
  } else {
    address.guid = address.group_guid.substr(colon + 1);
    address.group_guid.resize(colon);
  }
  return address;
}

Property PropertyOf(const JsonValue& entry) {
  PropertyAddress address = AddressOf(entry);
  Property property;
  property.group_guid = std::move(address.group_guid);
  property.group_name = TextOf(entry, keys::kGroupString);
  property.guid = std::move(address.guid);
  property.name = TextOf(entry, keys::kNameString);
  property.value = TextOf(entry, keys::kValue);
  property.status = TextOf(entry, keys::kStatus);
  property.component = std::move(address.component);
  property.component_name = TextOf(entry, keys::kComponentString);
  return property;
}

Incoming ContentOf(const JsonValue& message) {
  Incoming incoming;
  if (const JsonValue* sets = message.Find(keys::kSetRequests)) {
    for (const JsonValue& entry : sets->elements())
      incoming.sets.push_back({AddressOf(entry), TextOf(entry, keys::kValue)});
  }
  if (const JsonValue* responses = message.Find(keys::kGetResponses)) {
    incoming.properties.emplace().reserve(responses->size());
    for (const JsonValue& entry : responses->elements())
      incoming.properties->push_back(PropertyOf(entry));
  }
  return incoming;
}

}  // namespace

Result<std::string> GetAllFrame() {
  return FrameOf(keys::kGetAll, JsonValue(true));
}

Result<std::string> GetFrame(std::span<const PropertyAddress> addresses) {
  return FrameOf(keys::kGetRequests, AddressEntries(addresses));
}

// An empty property GUID stands for the whole group.
Result<std::string> GetGroupFrame(std::string_view group_guid) {
  const PropertyAddress group{"", std::string(group_guid), ""};
  return GetFrame({&group, 1});
}

Result<std::string> SetFrame(std::span<const SetRequest> requests) {
  JsonValue entries = JsonValue::Array();
  for (const SetRequest& request : requests) {
    JsonValue entry = AddressEntry(request.address);
    entry[keys::kValue] = Text(request.value);
    entries.Append(std::move(entry));
  }
  return FrameOf(keys::kSetRequests, std::move(entries));
}

Result<std::string> PublishFrame(std::span<const Property> properties, std::string_view status) {
  JsonValue entries = JsonValue::Array();
  for (const Property& property : properties) {
    entries.Append(PropertyEntry(property, status));
  }
  return FrameOf(keys::kGetResponses, std::move(entries));
}

Result<std::string> DisconnectFrame() {
  return FrameOf(keys::kDisconnect, JsonValue(true));
}

Result<std::string> SubscribeFrame(std::span<const PropertyAddress> addresses) {
  return ConfirmedFrame(keys::kSubscribeRequests, AddressEntries(addresses));
}

Result<std::string> SubscribeAllFrame() {
  return ConfirmedFrame(keys::kSubscribeAll, JsonValue(true));
}

Result<std::string> ConfirmationFrame() {
  return FrameOf(keys::kGetRequests, ConfirmationRequest());
}

bool IsConfirmation(const std::vector<Property>& properties) {
  return !properties.empty() && properties.front().status == kNotFound;
}

Result<Incoming> ReadMessage(std::string& text) {
  try {
    const JsonValue message = ParseJsonInPlace(text);
    if (message.kind() == JsonKind::kObject) return ContentOf(message);
    return Error{ErrorKind::kProtocol, "the service sent a message that is no JSON object"};
  } catch (const std::exception& error) {
    return Error{ErrorKind::kProtocol, std::string("unreadable message: ") + error.what()};
  }
}

}  // namespace valmere::client
