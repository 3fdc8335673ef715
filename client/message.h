// Messages as frames to send and as records received. Internal to the library.
#pragma once

#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "client/property.h"
#include "client/result.h"

namespace valmere::client {

// Each gives a whole frame. kInvalid when its text is longer than a receiver takes.
Result<std::string> GetAllFrame();
Result<std::string> GetFrame(std::span<const PropertyAddress> addresses);
Result<std::string> GetGroupFrame(std::string_view group_guid);
Result<std::string> SetFrame(std::span<const SetRequest> requests);
// The entries' status is `status`, whatever the properties' own is.
Result<std::string> PublishFrame(std::span<const Property> properties, std::string_view status);
Result<std::string> DisconnectFrame();
// A subscription together with a get of an unknown property.
Result<std::string> SubscribeFrame(std::span<const PropertyAddress> addresses);
Result<std::string> SubscribeAllFrame();
// Such a get alone.
Result<std::string> ConfirmationFrame();
// Whether the properties answer such a get: no notification ever says "not found".
bool IsConfirmation(const std::vector<Property>& properties);

// What one message from the service holds.
struct Incoming {
  std::optional<std::vector<Property>> properties;  // an answer to a get
  std::vector<SetRequest> sets;                     // meant for what this client publishes
};

// Reads a message's text, which is overwritten. kProtocol when it is not a JSON object.
Result<Incoming> ReadMessage(std::string& text);

}  // namespace valmere::client
