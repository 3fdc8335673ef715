// The centre of the service: knows every property, answers requests, keeps the subscriptions.
#pragma once

#include <atomic>
#include <cstddef>
#include <memory>
#include <set>
#include <string>
#include <string_view>

#include "net/client_connection.h"
#include "persist/log/log_sink.h"
#include "persist/settings/persistence.h"
#include "protocol/message/property_message.h"
#include "protocol/wire/entry_frame.h"
#include "protocol/wire/property_records.h"
#include "store/engine/change_publisher.h"
#include "store/engine/subscriber_list.h"
#include "store/property/component_registry.h"
#include "store/property/local_registry.h"
#include "store/property/string_property.h"

namespace valmere {

// The frame that a session answers with, kept by the session from reply to reply.
using ReplyBuffer = std::string;

// Purpose: holds the service's own properties and those that clients publish, handles messages, and
// publishes changes.
// Owner: shared by the service and its handlers; listeners that it attaches hold it weakly. It holds
// no client alive but by what that published or subscribed to.
// Threads: any; each client's messages on the one thread that serves it. Start and End on the owner's.
// Errors: a text that a property can't take leaves the property as it is. std::bad_alloc.
// Whatever a message asks for, it lets go soon after the service has ended its session.
class PropertyEngine : public PropertySink, public std::enable_shared_from_this<PropertyEngine> {
 public:
  // Longer ones are not sent: the session that asks for one ends. A message of sets may grow sixfold
  // by escapes and stay below; what grows more are entries without most of their fields.
  static constexpr std::size_t kMostReplyBytes = std::size_t{64} << 20;
  static constexpr std::size_t kMostForwardBytes = std::size_t{32} << 20;

  // Registers the publishing period with the persistence component. `log` may be empty.
  static std::shared_ptr<PropertyEngine> Make(Persistence& persistence,
                                              std::shared_ptr<LogSink> log,
                                              std::shared_ptr<StringProperty> own_component);
  ~PropertyEngine() override { End(); }
  PropertyEngine(const PropertyEngine&) = delete;
  PropertyEngine& operator=(const PropertyEngine&) = delete;

  // Starts the publishing thread; false when there is none to be had.
  bool Start(int priority) { return publishing_.Start(priority); }
  // Stops the publishing thread and waits for it; from here on nothing is published. Any number of
  // times. Who may leave others behind with a handle of the engine calls it.
  void End();
  // From here on every property that comes is announced; what came before was there from the start.
  void AnnounceFromNow() { announcing_.store(true); }
  // A property of this key announces no changes: subscribers get it at every period's end. Told
  // before anyone subscribes to it.
  void DeclareQuiet(std::string_view component, std::string_view group_guid, std::string_view guid);
  // One publishing pass; for tests, when the publishing thread was not started.
  void PublishPass() { publisher_->Pass(); }

  bool AddProperty(std::shared_ptr<Property> property) override;

  // Handles all that one message asks for, in a fixed order, and writes the reply, if there is one,
  // to the sender, unless that has gone. False when the session is over.
  bool HandleMessage(const PropertyMessage& message,
                     const std::shared_ptr<ClientConnection>& sender, ReplyBuffer& reply);

  // The client's stream has ended: what it published goes, and so does its subscription. Also when
  // memory has run out, which may be what ended it. When the service has ended the stream, both are
  // left for the engine's own end.
  void ConnectionEnded(const ClientConnection& client) noexcept;

 private:
  bool IsOwnComponent(std::string_view component) const {
    return component == own_component_->guid();
  }
  // Whether a client can be given a property, as far as is known.
  static bool CanOwn(const ClientConnection& client) { return client.IsOpen(); }
  PropertyEngine(std::shared_ptr<LogSink> log, std::shared_ptr<StringProperty> own_component,
                 std::shared_ptr<UIntProperty> period);

  enum class Reply { kNone, kReady, kTooLong };

  // Gets. Each appends its answers, and is false when the frame takes no more.
  Reply BuildReply(const PropertyMessage& message, const ClientConnection& sender,
                   ReplyBuffer& reply) const;
  bool AnswerAll(ResponseFrame& replies) const;
  template <class Registry>
  bool AnswerAllOf(const Registry& registry, ResponseFrame& replies) const;
  bool AnswerRequest(const PropertyAddress& request, ResponseFrame& replies) const;
  bool AnswerGroup(const PropertyAddress& request, ResponseFrame& replies) const;
  template <class Registry>
  bool AnswerGroupOf(const Registry& registry, std::string_view group_guid, ResponseFrame& replies,
                     bool& any) const;
  bool Answer(const Property& property, ResponseFrame& replies) const;
  // Where gets look: in the registry that the component names; empty when there is none.
  std::shared_ptr<Property> FindAny(const PropertyAddress& address) const;
  bool SendReply(ClientConnection& sender, const ReplyBuffer& reply);

  // Sets the service's own properties that clients may set; passes the others on to their owners,
  // one message for each owner. Unknown ones are passed over. False when that would be too much.
  bool HandleSetRequests(const PropertyMessage& message, const ClientConnection& sender);
  void SetOwn(const PropertySetRecord& request);
  std::shared_ptr<ClientConnection> OwnerOf(const PropertySetRecord& request);

  // What components say of their own properties.
  void ApplyComponentEntry(const PropertyResponseRecord& entry,
                           const std::shared_ptr<ClientConnection>& sender);
  // The published property, whose owner may have come back over this connection.
  std::shared_ptr<ComponentProperty> FindPublished(
      const PropertyResponseRecord& entry, const std::shared_ptr<ClientConnection>& publisher);

  void LogEnd(const ClientConnection& client, std::string_view cause) const;
  void LogPassedOver(const PropertySetRecord& request) const;
  void LogReported(const Property& property, std::string_view value) const;
  void LogChangesOf(Property& property) const;

  void Subscribe(const PropertyMessage& message, const std::shared_ptr<ClientConnection>& sender);
  void Unsubscribe(const ClientConnection& client) noexcept;
  // The keys of a subscription, as far as the session lasts.
  static Subscriber::Keys KeysOf(const PropertyMessage& message, const ClientConnection& sender);
  // Makes the property's changes reach the publisher; once, however many subscribe.
  void Observe(const std::shared_ptr<Property>& property) EXCLUDES(observe_lock_);
  // Both leave off when `stop` goes up.
  void ObserveAll(const std::atomic<bool>& stop);
  template <class Registry>
  void ObserveAllOf(const Registry& registry, const std::atomic<bool>& stop);
  // In both registries: a component may publish under the service's own GUID.
  void ObserveNamed(const PropertyAddress& address);
  void Changed(const std::shared_ptr<Property>& property);
  bool IsQuiet(const Property& property) const REQUIRES(observe_lock_);
  bool IsWanted(const Property& property) EXCLUDES(subscribers_->lock);
  std::string SubscriptionKey(const Property& property) const;
  // Whether it is still what its registry has under its key.
  bool IsRegistered(const Property& property) const;
  // A property has come into a registry.
  void Appeared(const std::shared_ptr<Property>& property) EXCLUDES(presence_lock_);
  // Both take published properties away and announce that.
  void Withdraw(const PropertyAddress& address) EXCLUDES(presence_lock_);
  void WithdrawAllOf(const ClientConnection& client) noexcept EXCLUDES(presence_lock_);
  void Vanished(const std::shared_ptr<ComponentProperty>& property) noexcept
      REQUIRES(presence_lock_);

  const std::shared_ptr<LogSink> log_;
  const std::shared_ptr<StringProperty> own_component_;
  LocalRegistry local_;
  ComponentRegistry components_;
  const std::shared_ptr<SubscriberList> subscribers_;
  std::atomic<bool> announcing_{false};

  // Held while a property gets its listener.
  Lock observe_lock_;
  std::set<std::string, std::less<>> quiet_keys_ GUARDED_BY(observe_lock_);

  // Keeps announcements in the order of what they tell of: one that a property has come is made
  // only while it is there, and before the one that it has gone.
  Lock presence_lock_;

  const std::shared_ptr<ChangePublisher> publisher_;
  PublishingThread publishing_;
};

}  // namespace valmere
