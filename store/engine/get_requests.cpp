// Values are read and rendered with no lock held.
#include "store/engine/get_requests.h"

#include <utility>

#include "net/client_connection.h"
#include "protocol/message/property_message.h"
#include "protocol/wire/entry_frame.h"
#include "protocol/wire/message_keys.h"
#include "store/engine/property_catalog.h"
#include "store/engine/property_record.h"
#include "store/engine/reply_memory.h"

namespace valmere {
namespace {

// The functions that append answers return false when the frame takes no more.
bool Answer(const PropertyCatalog& catalog, const Property& property, ResponseFrame& replies) {
  return replies.Append(
      RecordOf(property, property.GetValueString(), kStatusSuccessful, catalog.own_component()));
}

bool AnswerGroup(const PropertyCatalog& catalog, const PropertyAddress& request,
                 ResponseFrame& replies) {
  bool any = false;
  const bool whole = catalog.ForEachOfGroup(request.group_guid, [&](const auto& property) {
    any = true;
    return Answer(catalog, *property, replies);
  });
  if (!whole) return false;
  return any || replies.Append(UnknownPropertyRecord(request, kStatusNotFound));
}

bool AnswerRequest(const PropertyCatalog& catalog, const PropertyAddress& request,
                   ResponseFrame& replies) {
  if (request.guid.empty()) return AnswerGroup(catalog, request, replies);
  if (const auto found = catalog.Find(request)) return Answer(catalog, *found, replies);
  return replies.Append(UnknownPropertyRecord(request, kStatusNotFound));
}

bool AnswerAll(const PropertyCatalog& catalog, ReplyMemory& memory, ResponseFrame& replies) {
  replies.Reserve(catalog.size(), memory.entry_bytes());
  std::size_t entries = 0;
  const bool whole = catalog.ForEach([&](const auto& property) {
    ++entries;
    return Answer(catalog, *property, replies);
  });
  if (whole) memory.NoteAll(entries, replies.end());
  return whole;
}

}  // namespace

// Nothing is made for a client that is gone: a service that ends with many requests queued would
// spend its time on replies that no client reads.
Reply BuildReply(const PropertyCatalog& catalog, const PropertyMessage& message,
                 const ClientConnection& sender, ReplyMemory& memory, ReplyBuffer& reply) {
  if (!sender.IsOpen()) return Reply::kNone;
  ResponseFrame frame(reply, sender.ended_flag(), &memory);
  frame.set_most(kMostReplyBytes);
  const bool whole = message.Has(keys::kGetAll)
                         ? AnswerAll(catalog, memory, frame)
                         : message.ForEachGetRequest([&](const PropertyAddress& request) {
                             return AnswerRequest(catalog, request, frame);
                           });
  if (whole) frame.Finish();
  if (whole) return Reply::kReady;
  memory.GiveBack(std::exchange(reply, ReplyBuffer()));
  return frame.too_long() ? Reply::kTooLong : Reply::kNone;
}

}  // namespace valmere
