// What gets are answered with.
#pragma once

#include <cstddef>
#include <string>

namespace valmere {

class ClientConnection;
class PropertyCatalog;
class PropertyMessage;
class ReplyMemory;

// The frame that a session answers with, kept by the session from reply to reply.
using ReplyBuffer = std::string;

// A longer one is not sent: the session that asks for it ends.
inline constexpr std::size_t kMostReplyBytes = std::size_t{64} << 20;

enum class Reply { kNone, kReady, kTooLong };

// Builds in `reply` the frame that answers the message's gets; one that outgrows it gets another
// buffer in its place. kNone when the sender has gone. Any thread. std::bad_alloc.
Reply BuildReply(const PropertyCatalog& catalog, const PropertyMessage& message,
                 const ClientConnection& sender, ReplyMemory& memory, ReplyBuffer& reply);

}  // namespace valmere
