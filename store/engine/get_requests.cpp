// What gets are answered with. Many properties are looked at step by step, and their values are read
// and rendered with no lock held.
#include <algorithm>
#include <vector>

#include "persist/log/debug_switches.h"
#include "protocol/wire/message_keys.h"
#include "store/engine/property_engine.h"
#include "store/engine/property_record.h"

namespace valmere {

// Nothing is made for a client that is gone: a service that ends with many requests queued would
// spend its time on replies that nobody reads.
PropertyEngine::Reply PropertyEngine::BuildReply(const PropertyMessage& message,
                                                 const ClientConnection& sender,
                                                 ReplyBuffer& reply) const {
  if (!sender.IsOpen()) return Reply::kNone;
  ResponseFrame frame(reply, sender.ended_flag());
  frame.set_most(kMostReplyBytes);
  const bool whole = message.Has(keys::kGetAll)
                         ? AnswerAll(frame)
                         : message.ForEachGetRequest([&](const PropertyAddress& request) {
                             return AnswerRequest(request, frame);
                           });
  if (whole) frame.Finish();
  if (whole) return Reply::kReady;
  ReplyBuffer().swap(reply);
  return frame.too_long() ? Reply::kTooLong : Reply::kNone;
}

bool PropertyEngine::Answer(const Property& property, ResponseFrame& replies) const {
  return replies.Append(
      RecordOf(property, property.GetValueString(), kStatusSuccessful, *own_component_));
}

std::shared_ptr<Property> PropertyEngine::FindAny(const PropertyAddress& address) const {
  if (IsOwnComponent(address.component)) return local_.Find(address.group_guid, address.guid);
  return components_.Find(address.guid, address.group_guid, address.component);
}

bool PropertyEngine::AnswerRequest(const PropertyAddress& request, ResponseFrame& replies) const {
  if (request.guid.empty()) return AnswerGroup(request, replies);
  if (const auto found = FindAny(request)) return Answer(*found, replies);
  return replies.Append(UnknownPropertyRecord(request, kStatusNotFound));
}

bool PropertyEngine::AnswerGroup(const PropertyAddress& request, ResponseFrame& replies) const {
  bool any = false;
  if (!AnswerGroupOf(local_, request.group_guid, replies, any)) return false;
  if (!AnswerGroupOf(components_, request.group_guid, replies, any)) return false;
  return any || replies.Append(UnknownPropertyRecord(request, kStatusNotFound));
}

template <class Registry>
bool PropertyEngine::AnswerGroupOf(const Registry& registry, std::string_view group_guid,
                                   ResponseFrame& replies, bool& any) const {
  std::vector<typename Registry::Handle> step;
  std::uint64_t next = 0;
  bool more = true;
  while (more) {
    step.clear();
    more = registry.ListGroup(group_guid, next, step);
    for (const auto& property : step)
      if (!Answer(*property, replies)) return false;
    any = any || !step.empty();
  }
  return true;
}

bool PropertyEngine::AnswerAll(ResponseFrame& replies) const {
  replies.Reserve(local_.size() + components_.size());
  return AnswerAllOf(local_, replies) && AnswerAllOf(components_, replies);
}

template <class Registry>
bool PropertyEngine::AnswerAllOf(const Registry& registry, ResponseFrame& replies) const {
  std::vector<typename Registry::Handle> step;
  step.reserve(PropertyIndex<Property>::kStep);
  typename Registry::Place place;
  bool more = true;
  while (more) {
    step.clear();
    more = registry.ListAll(place, step);
    for (const auto& property : step)
      if (!Answer(*property, replies)) return false;
  }
  return true;
}

}  // namespace valmere
