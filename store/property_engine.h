// The centre of the service: knows every property, answers requests, keeps the subscriptions.
#pragma once

#include <atomic>
#include <memory>
#include <set>
#include <span>
#include <string>
#include <string_view>

#include "persist/log_sink.h"
#include "persist/persistence.h"
#include "protocol/client_connection.h"
#include "protocol/property_message.h"
#include "protocol/property_records.h"
#include "protocol/response_frame.h"
#include "store/change_publisher.h"
#include "store/component_registry.h"
#include "store/local_registry.h"
#include "store/string_property.h"
#include "store/subscriber_list.h"

namespace valmere {

// The frame that a session answers with, kept by the session from reply to reply.
using ReplyBuffer = std::string;

// Purpose: holds the service's own properties and those that clients publish, handles messages, and
// publishes changes.
// Owner: shared by the service and its handlers; listeners that it attaches hold it weakly. It holds
// no client alive but by what that published or subscribed to.
// Threads: any; each client's messages on the one thread that serves it.
// Errors: a text that a property can't take leaves the property as it is. std::bad_alloc.
class PropertyEngine : public PropertySink, public std::enable_shared_from_this<PropertyEngine> {
 public:
  // Registers the publishing period with the persistence component. `log` may be empty.
  static std::shared_ptr<PropertyEngine> Make(Persistence& persistence,
                                              std::shared_ptr<LogSink> log,
                                              std::shared_ptr<StringProperty> own_component);
  PropertyEngine(const PropertyEngine&) = delete;
  PropertyEngine& operator=(const PropertyEngine&) = delete;

  // Starts the publishing thread; false when there is none to be had.
  bool Start(int priority) { return publisher_.Start(priority); }
  // From here on every property that comes is announced; what came before was there from the start.
  void AnnounceFromNow() { announcing_.store(true); }
  // A property of this key announces no changes: subscribers get it at every period's end. Told
  // before anyone subscribes to it.
  void DeclareQuiet(std::string_view component, std::string_view group_guid, std::string_view guid);
  // One publishing pass; for tests, when the publishing thread was not started.
  void PublishPass() { publisher_.Pass(); }

  bool AddProperty(std::shared_ptr<Property> property) override;

  // Handles all that one message asks for, in a fixed order, and writes the reply, if there is one,
  // to the sender, unless that has gone. False when the session is over.
  bool HandleMessage(const PropertyMessage& message,
                     const std::shared_ptr<ClientConnection>& sender, ReplyBuffer& reply);

  // The client's stream has ended: what it published goes, and so does its subscription. Also when
  // memory has run out, which may be what ended it.
  void ConnectionEnded(const ClientConnection& client) noexcept;

  // Appends the answer to each request, in order; a request without a property GUID asks for the
  // whole group.
  void HandleGetRequests(std::span<const PropertyAddress> requests, ResponseFrame& replies) const;
  // Appends every property: the service's own, then the components', each by ascending group GUID
  // and in the order of registration within a group.
  void HandleGetAll(ResponseFrame& replies) const;
  // Sets the service's own properties that clients may set; passes the others on to their owners,
  // one message for each owner. Unknown ones are passed over.
  void HandleSetRequests(std::span<const PropertySetRecord> requests,
                         const ClientConnection& sender);
  // Takes what a component says of its own properties.
  void ApplyComponentEntries(std::span<const PropertyResponseRecord> entries,
                             const std::shared_ptr<ClientConnection>& sender);

 private:
  bool IsOwnComponent(std::string_view component) const {
    return component == own_component_->guid();
  }
  PropertyEngine(std::shared_ptr<LogSink> log, std::shared_ptr<StringProperty> own_component,
                 std::shared_ptr<UIntProperty> period);

  void Answer(const Property& property, ResponseFrame& replies) const;
  void AnswerOne(const PropertyAddress& request, ResponseFrame& replies) const;
  void AnswerGroup(const PropertyAddress& request, ResponseFrame& replies) const;
  // In the registry that the component names; empty when there is none.
  std::shared_ptr<Property> FindAny(const PropertyAddress& address) const;
  void SetOwn(const PropertySetRecord& request);
  // The published property, whose owner may have come back over this connection.
  std::shared_ptr<ComponentProperty> FindPublished(
      const PropertyResponseRecord& entry, const std::shared_ptr<ClientConnection>& publisher);
  void ApplyComponentEntry(const PropertyResponseRecord& entry,
                           const std::shared_ptr<ClientConnection>& sender);

  void LogPassedOver(const PropertySetRecord& request) const;
  void LogReported(const Property& property, std::string_view value) const;
  void LogChangesOf(Property& property) const;
  std::shared_ptr<ClientConnection> OwnerOf(const PropertySetRecord& request) const;

  // False when there is nobody to reply to any more.
  bool BuildReply(const PropertyMessage& message, const ClientConnection& sender,
                  ReplyBuffer& reply) const;
  void Subscribe(const PropertyMessage& message, const std::shared_ptr<ClientConnection>& sender);
  void Unsubscribe(const ClientConnection& client) noexcept;
  // Makes the property's changes reach the publisher; once, however many subscribe.
  void Observe(const std::shared_ptr<Property>& property) EXCLUDES(observe_lock_);
  void ObserveAll();
  void ObserveNamed(std::span<const PropertyAddress> addresses);
  void Changed(const std::shared_ptr<Property>& property);
  bool IsQuiet(const Property& property) const REQUIRES(observe_lock_);
  bool IsWanted(const Property& property) EXCLUDES(subscribers_.lock);
  std::string SubscriptionKey(const Property& property) const;
  // Whether it is still what its registry has under its key.
  bool IsRegistered(const std::shared_ptr<Property>& property) const;
  // A property has come into a registry.
  void Appeared(const std::shared_ptr<Property>& property) EXCLUDES(presence_lock_);
  // Both take published properties away and announce that.
  void Withdraw(const PropertyAddress& address) EXCLUDES(presence_lock_);
  void WithdrawAllOf(const ClientConnection& client) noexcept EXCLUDES(presence_lock_);
  void Vanished(const std::shared_ptr<ComponentProperty>& property) noexcept
      REQUIRES(presence_lock_);
  bool SendReply(ClientConnection& sender, const ReplyBuffer& reply);

  const std::shared_ptr<LogSink> log_;
  const std::shared_ptr<StringProperty> own_component_;
  LocalRegistry local_;
  ComponentRegistry components_;
  SubscriberList subscribers_;
  std::atomic<bool> announcing_{false};

  // Held while a property gets its listener.
  Lock observe_lock_;
  std::set<std::string, std::less<>> quiet_keys_ GUARDED_BY(observe_lock_);

  // Keeps announcements in the order of what they tell of: one that a property has come is made
  // only while it is there, and before the one that it has gone.
  Lock presence_lock_;

  ChangePublisher publisher_;  // the last member: its thread uses the others
};

}  // namespace valmere
