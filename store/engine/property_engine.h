// The centre of the service: handles messages, and puts together what answers and what publishes.
#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "persist/settings/persistence.h"
#include "store/engine/get_requests.h"
#include "store/engine/property_presence.h"
#include "store/engine/publishing_thread.h"

namespace valmere {

class ChangePublisher;
class ClientConnection;
class LogSink;
class Observation;
struct PendingUpdates;
class PropertyCatalog;
class PropertyMessage;
class ReplyMemory;
class StringProperty;
class SubscriberList;
class UIntProperty;

// Purpose: handles what clients send, over the service's own properties and those that clients
// publish, and has changes published.
// Owner: shared by the service and its handlers. It keeps a client's connection only for what that
// client published or subscribed to.
// Threads: any; each client's messages on the one thread that serves it. Start and End on the
// owner's.
// Errors: a text that a property can't take leaves the property as it is. std::bad_alloc.
// However much a message asks for, the work on it ends soon after the service has ended the session.
class PropertyEngine : public PropertySink {
 public:
  // Registers the publishing period with the persistence component. `log` may be empty.
  static std::shared_ptr<PropertyEngine> Make(Persistence& persistence,
                                              std::shared_ptr<LogSink> log,
                                              std::shared_ptr<StringProperty> own_component);
  // As End.
  ~PropertyEngine() override { End(); }
  PropertyEngine(const PropertyEngine&) = delete;
  PropertyEngine& operator=(const PropertyEngine&) = delete;

  // Starts the publishing thread; false when the system gives none.
  bool Start(int priority) { return publishing_.Start(priority); }
  // Stops the publishing thread and waits for it; from here on nothing is published, and no memory
  // kept for large replies. Any number of times. An owner that may leave others behind with a
  // handle of the engine calls it.
  void End();
  // From here on every property that comes is announced; what came before was there from the start.
  void AnnounceFromNow() { presence_.AnnounceFromNow(); }
  // For a property whose value changes without an announcement, as one set silently does:
  // subscribers get it at every period's end. Called before a client subscribes to it.
  void DeclareQuiet(std::string_view component, std::string_view group_guid, std::string_view guid);
  // One publishing pass, as the publishing thread makes them: for when that was not started.
  void PublishPass();

  bool AddProperty(std::shared_ptr<Property> property) override {
    return presence_.AddOwn(property);
  }

  // Handles all that one message asks for, in a fixed order, and writes the reply, if there is one,
  // to the sender, unless that has gone. False when the session is over.
  bool HandleMessage(const PropertyMessage& message,
                     const std::shared_ptr<ClientConnection>& sender, ReplyBuffer& reply);

  // The client's stream has ended: what it published goes, and so does its subscription. Also when
  // memory has run out, which may be what ended it. When the service has ended the stream, both are
  // left for the engine's own end.
  void ConnectionEnded(const ClientConnection& client) noexcept;

 private:
  PropertyEngine(std::shared_ptr<LogSink> log, std::shared_ptr<StringProperty> own_component,
                 std::shared_ptr<UIntProperty> period);

  // The functions that return a bool give false when the session is over.
  bool Subscribe(const PropertyMessage& message, const std::shared_ptr<ClientConnection>& sender);
  bool TakePublications(const PropertyMessage& message,
                        const std::shared_ptr<ClientConnection>& sender);
  bool IsWithinBounds(ClientConnection& client, bool over_others) const;
  void Unsubscribe(const ClientConnection& client) noexcept;
  template <class Frame>
  bool SendReply(ClientConnection& sender, const Frame& frame);
  // Tells why the service ends the session; `cause` goes on from the client's name. Always false.
  bool ExplainEnd(ClientConnection& client, const std::string& cause) const;

  const std::shared_ptr<LogSink> log_;
  const std::shared_ptr<PropertyCatalog> catalog_;
  const std::shared_ptr<SubscriberList> subscribers_;
  const std::shared_ptr<PendingUpdates> pending_;
  const std::shared_ptr<ReplyMemory> reply_memory_;
  const std::shared_ptr<Observation> observation_;
  PropertyPresence presence_;
  const std::shared_ptr<ChangePublisher> publisher_;
  PublishingThread publishing_;  // the last: it ends before what its passes use
};

}  // namespace valmere
