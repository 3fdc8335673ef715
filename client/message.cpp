// The client's types own their texts; the records of the wire only look at them.
#include "client/message.h"

#include <exception>
#include <utility>

#include "json/json_parser.h"
#include "json/json_value.h"
#include "json/json_writer.h"
#include "protocol/wire/entries.h"
#include "protocol/wire/message_frame.h"
#include "protocol/wire/message_keys.h"

namespace valmere::client {
namespace {

// Public headers include no other layer, so the texts stand there a second time.
static_assert(kStatusSuccessful == kSuccessful);
static_assert(kStatusNotFound == kNotFound);
static_assert(kStatusNoLongerAvailable == kNoLongerAvailable);

valmere::PropertyAddress RecordOf(const PropertyAddress& address) {
  return {address.component, address.group_guid, address.guid};
}

PropertySetRecord RecordOf(const SetRequest& request) {
  const PropertyAddress& address = request.address;
  return {address.guid, address.group_guid, address.component, request.value};
}

PropertyResponseRecord RecordOf(const Property& property, std::string_view status) {
  return {property.group_guid, property.group_name,    property.guid,
          property.name,       property.value,         status,
          property.component,  property.component_name};
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
  for (const PropertyAddress& address : addresses)
    entries.Append(EntryOf(RecordOf(address)));
  return entries;
}

Result<std::string> FrameOf(std::string_view key, JsonValue value) {
  JsonValue message = JsonValue::Object();
  message[key] = std::move(value);
  return FrameOf(message);
}

// A request for a property that no component has.
JsonValue ConfirmationRequest() {
  const PropertyAddress unknown{"none", "none", "none"};
  return AddressEntries({&unknown, 1});
}

Result<std::string> ConfirmedFrame(std::string_view key, JsonValue value) {
  JsonValue message = JsonValue::Object();
  message[key] = std::move(value);
  message[keys::kGetRequests] = ConfirmationRequest();
  return FrameOf(message);
}

SetRequest SetRequestOf(const PropertySetRecord& record) {
  return {{std::string(record.component), std::string(record.group_guid), std::string(record.guid)},
          std::string(record.value)};
}

Property PropertyOf(const PropertyResponseRecord& record) {
  Property property;
  property.group_guid = record.group_guid;
  property.group_name = record.group_name;
  property.guid = record.guid;
  property.name = record.name;
  property.value = record.value;
  property.status = record.status;
  property.component = record.component;
  property.component_name = record.component_name;
  return property;
}

Incoming ContentOf(const JsonValue& message) {
  Incoming incoming;
  if (const JsonValue* sets = message.Find(keys::kSetRequests))
    for (const JsonValue& entry : sets->elements())
      incoming.sets.push_back(SetRequestOf(ReadSetRecord(entry)));
  if (const JsonValue* responses = message.Find(keys::kGetResponses)) {
    incoming.properties.emplace().reserve(responses->size());
    for (const JsonValue& entry : responses->elements())
      incoming.properties->push_back(PropertyOf(ReadResponseRecord(entry)));
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
  for (const SetRequest& request : requests)
    entries.Append(EntryOf(RecordOf(request)));
  return FrameOf(keys::kSetRequests, std::move(entries));
}

Result<std::string> PublishFrame(std::span<const Property> properties, std::string_view status) {
  JsonValue entries = JsonValue::Array();
  for (const Property& property : properties)
    entries.Append(EntryOf(RecordOf(property, status)));
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
