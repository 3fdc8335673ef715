// What set requests do: the service's own properties are set, the others' owners are asked to.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

namespace valmere {

class ClientConnection;
class LogSink;
class PropertyCatalog;
class PropertyMessage;

// A message of sets may grow sixfold by escapes and stay below; what grows more are entries without
// most of their fields.
inline constexpr std::size_t kMostForwardBytes = std::size_t{32} << 20;

// How long a message waits for all owners together that have no room for its sets.
inline constexpr std::uint32_t kMostForwardMilliseconds = 5000;

// Sets the service's own properties that clients may set; passes the other sets on to the owners of
// their properties, one message for each owner. Those of unknown properties, and texts that a
// property can't take, are passed over and logged; `log` may be empty. False when the messages
// would be longer than kMostForwardBytes together; then none is sent. An owner that has no room after
// `most_milliseconds` doesn't get its sets, which is logged. Any thread, with no lock held.
// std::bad_alloc.
bool HandleSetRequests(PropertyCatalog& catalog, const PropertyMessage& message,
                       const ClientConnection& sender, const std::shared_ptr<LogSink>& log,
                       std::uint32_t most_milliseconds = kMostForwardMilliseconds);

}  // namespace valmere
