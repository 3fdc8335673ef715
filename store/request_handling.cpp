// What requests do to properties: answers, sets, and what components publish.
#include <algorithm>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "persist/debug_switches.h"
#include "persist/log_line.h"
#include "store/property_engine.h"
#include "store/property_record.h"

namespace valmere {
namespace {

std::shared_ptr<ComponentProperty> MakePublished(const PropertyResponseRecord& entry,
                                                 const std::shared_ptr<ClientConnection>& owner) {
  return ComponentProperty::Make(entry.value, entry.guid, entry.name, entry.group_guid,
                                 entry.group_name, entry.component, entry.component_name, owner);
}

// The set requests for one owner, in request order.
struct OwnerRequests {
  std::shared_ptr<ClientConnection> owner;
  std::vector<PropertySetRecord> requests;
};

// Sorts requests by owner, owners in the order in which they are first mentioned. They are few.
class RequestsByOwner {
 public:
  void Add(std::shared_ptr<ClientConnection> owner, const PropertySetRecord& request) {
    auto place = std::find_if(owners_.begin(), owners_.end(),
                              [&](const OwnerRequests& entry) { return entry.owner == owner; });
    if (place == owners_.end()) place = owners_.insert(place, {std::move(owner), {}});
    place->requests.push_back(request);
  }

  void SendAll() const {
    for (const OwnerRequests& entry : owners_) {
      PropertyMessage forward;
      forward.SetRequests(entry.requests);
      // An owner that can't be reached any more is about to be withdrawn by its own thread.
      forward.Write(*entry.owner);
    }
  }

 private:
  std::vector<OwnerRequests> owners_;
};

}  // namespace

void PropertyEngine::Answer(const Property& property, ResponseFrame& replies) const {
  replies.Append(RecordOf(property, property.GetValueString(), kStatusSuccessful, *own_component_));
}

std::shared_ptr<Property> PropertyEngine::FindAny(const PropertyAddress& address) const {
  if (IsOwnComponent(address.component)) return local_.Find(address.group_guid, address.guid);
  return components_.Find(address.guid, address.group_guid, address.component);
}

void PropertyEngine::HandleGetRequests(std::span<const PropertyAddress> requests,
                                       ResponseFrame& replies) const {
  for (const PropertyAddress& request : requests) {
    if (request.guid.empty()) {
      AnswerGroup(request, replies);
    } else {
      AnswerOne(request, replies);
    }
  }
}

void PropertyEngine::AnswerOne(const PropertyAddress& request, ResponseFrame& replies) const {
  if (const auto found = FindAny(request)) {
    Answer(*found, replies);
  } else {
    replies.Append(UnknownPropertyRecord(request, kStatusNotFound));
  }
}

void PropertyEngine::AnswerGroup(const PropertyAddress& request, ResponseFrame& replies) const {
  std::vector<std::shared_ptr<Property>> own;
  local_.ListGroup(request.group_guid, own);
  for (const auto& property : own)
    Answer(*property, replies);
  std::vector<std::shared_ptr<ComponentProperty>> published;
  components_.ListGroup(request.group_guid, published);
  for (const auto& property : published)
    Answer(*property, replies);
  if (own.empty() && published.empty())
    replies.Append(UnknownPropertyRecord(request, kStatusNotFound));
}

void PropertyEngine::HandleGetAll(ResponseFrame& replies) const {
  std::vector<std::shared_ptr<Property>> own;
  local_.ListAll(own);
  std::vector<std::shared_ptr<ComponentProperty>> published;
  components_.ListAll(published);
  replies.Reserve(own.size() + published.size());
  for (const auto& property : own)
    Answer(*property, replies);
  for (const auto& property : published)
    Answer(*property, replies);
}

// Empty also for one that is being withdrawn right now.
std::shared_ptr<ClientConnection> PropertyEngine::OwnerOf(const PropertySetRecord& request) const {
  const auto found = components_.Find(request.guid, request.group_guid, request.component);
  return found ? found->connection() : nullptr;
}

// A service that ends does not wait until tens of thousands of sets in one message are done.
void PropertyEngine::HandleSetRequests(std::span<const PropertySetRecord> requests,
                                       const ClientConnection& sender) {
  RequestsByOwner forwards;
  for (const PropertySetRecord& request : requests) {
    if (sender.ended()) break;
    if (IsOwnComponent(request.component)) {
      SetOwn(request);
    } else if (auto owner = OwnerOf(request)) {
      forwards.Add(std::move(owner), request);
    } else {
      LogPassedOver(request);
    }
  }
  forwards.SendAll();
}

void PropertyEngine::LogPassedOver(const PropertySetRecord& request) const {
  LogIn(DebugZone::kWarning, log_, [&] {
    return "A set request names no property: " + QuoteForLog(request.component) + " " +
           QuoteForLog(request.group_guid) + " " + QuoteForLog(request.guid);
  });
}

void PropertyEngine::SetOwn(const PropertySetRecord& request) {
  const auto found = local_.Find(request.group_guid, request.guid);
  if (!found) {
    LogPassedOver(request);
    return;
  }
  std::string refusal = "it can't be set";
  try {
    if ((found->attribute() & Property::kSettable) != 0) {
      found->SetFromString(std::string(request.value));
      return;
    }
  } catch (const std::logic_error& error) {
    // A text that is no number, or one out of range: the value stays, and so does the session.
    refusal = error.what();
  }
  LogIn(DebugZone::kError, log_, [&] {
    return "Property " + QuoteForLog(found->name()) + " was not set to " +
           QuoteForLog(request.value) + ": " + refusal;
  });
}

void PropertyEngine::ApplyComponentEntries(std::span<const PropertyResponseRecord> entries,
                                           const std::shared_ptr<ClientConnection>& sender) {
  for (const PropertyResponseRecord& entry : entries)
    ApplyComponentEntry(entry, sender);
}

// A component that reopened its handle may publish before the thread of the old one has noticed its
// end. Reassigning fails only when that thread, or another publisher, was quicker. A property
// without an owner was withdrawn after it had been found.
std::shared_ptr<ComponentProperty> PropertyEngine::FindPublished(
    const PropertyResponseRecord& entry, const std::shared_ptr<ClientConnection>& publisher) {
  for (;;) {
    auto found = components_.Find(entry.guid, entry.group_guid, entry.component);
    if (!found) return found;
    const auto owner = found->connection();
    if (!owner) continue;
    if (owner == publisher || owner->IsOpen()) return found;
    publisher->set_has_published();
    if (components_.Reassign(found, *owner, publisher)) return found;
  }
}

void PropertyEngine::ApplyComponentEntry(const PropertyResponseRecord& entry,
                                         const std::shared_ptr<ClientConnection>& sender) {
  if (entry.status == kStatusNotFound) return;
  const bool gone = entry.status == kStatusNoLongerAvailable;
  if (const auto found = FindPublished(entry, sender)) {
    LogReported(*found, entry.value);
    found->SetValue(entry.value);
    if (gone) Withdraw({entry.component, entry.group_guid, entry.guid});
  } else if (gone) {
    // Nobody knew it, but somebody may have subscribed to it.
    publisher_.AnnounceVanished(MakePublished(entry, nullptr));
  } else if (entry.status == kStatusSuccessful) {
    sender->set_has_published();
    const auto published = MakePublished(entry, sender);
    if (components_.Add(published)) Appeared(published);
  }
}

void PropertyEngine::LogReported(const Property& property, std::string_view value) const {
  if (!IsOn(DebugZone::kProperty) || property.GetValueString() == value) return;
  LogIn(DebugZone::kProperty, log_, [&] {
    return "Property " + QuoteForLog(property.name()) + " of " +
           QuoteForLog(property.component_name()) + " changes to " + QuoteForLog(value);
  });
}

}  // namespace valmere
