// The handling of one message: its keys in their fixed order, each independent of the others.
#include "store/engine/property_engine.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>

#include "net/client_connection.h"
#include "persist/log/debug_switches.h"
#include "persist/log/log_sink.h"
#include "protocol/message/property_message.h"
#include "protocol/wire/message_keys.h"
#include "store/engine/change_publisher.h"
#include "store/engine/observation.h"
#include "store/engine/pending_updates.h"
#include "store/engine/property_catalog.h"
#include "store/engine/reply_memory.h"
#include "store/engine/set_requests.h"
#include "store/engine/subscriber_list.h"
#include "store/property/component_property.h"
#include "store/property/general_group.h"
#include "store/property/property_key.h"
#include "store/property/string_property.h"
#include "store/property/uint_property.h"

namespace valmere {
namespace {

constexpr std::uint32_t kInitialPeriodMilliseconds = 500;

// A session keeps a reply buffer of at most this size between messages. A longer reply is a large
// one: its memory is shared, and its writing takes longer than other threads should wait.
constexpr std::size_t kKeptReplyBytes = std::size_t{16} * 1024;

bool WriteWhole(ClientConnection& client, const std::string& frame, EventFlags::PendingWake& wake) {
  const int length = static_cast<int>(frame.size());
  return client.WriteDeferringWake(frame.data(), length, wake) == length;
}

bool WriteWhole(ClientConnection& client, const SharedFrame& frame, EventFlags::PendingWake& wake) {
  return client.WriteShared(frame, wake) == static_cast<int>(frame->size());
}

std::string ClientText(const ClientConnection& client) {
  return "Client " + std::to_string(client.instance_number());
}

// Keys that are charged to a client and not yet its subscription's.
struct NewKeys {
  explicit NewKeys(ClientConnection& of) : client(of) {}
  ~NewKeys() { Subscriber::ReleaseKeys(client, keys); }
  NewKeys(const NewKeys&) = delete;
  NewKeys& operator=(const NewKeys&) = delete;

  void Add(const PropertyAddress& address) {
    const auto [key, added] =
        keys.insert(PropertyKey(address.component, address.group_guid, address.guid).Text());
    ClientAccount* const account = added ? client.account() : nullptr;
    if (account != nullptr) account->Charge(Subscriber::BytesOf(*key));
  }

  ClientConnection& client;
  Subscriber::Keys keys;
};

}  // namespace

std::shared_ptr<PropertyEngine> PropertyEngine::Make(
    Persistence& persistence, std::shared_ptr<LogSink> log,
    std::shared_ptr<StringProperty> own_component) {
  auto period =
      UIntProperty::Make(kInitialPeriodMilliseconds, "DA821DC5-948D-4659-9B52-177E4C102129",
                         "Property Publishing Period in ms", kGeneralGroupGuid, kGeneralGroup);
  persistence.RegisterProperty(period);
  return std::shared_ptr<PropertyEngine>(
      new PropertyEngine(std::move(log), std::move(own_component), std::move(period)));
}

PropertyEngine::PropertyEngine(std::shared_ptr<LogSink> log,
                               std::shared_ptr<StringProperty> own_component,
                               std::shared_ptr<UIntProperty> period)
    : log_(std::move(log)),
      catalog_(std::make_shared<PropertyCatalog>(own_component)),
      subscribers_(std::make_shared<SubscriberList>()),
      pending_(std::make_shared<PendingUpdates>()),
      reply_memory_(ReplyMemory::Make()),
      observation_(Observation::Make(catalog_, subscribers_, pending_)),
      presence_(catalog_, observation_, pending_, log_),
      publisher_(std::make_shared<ChangePublisher>(std::move(own_component), std::move(period),
                                                   subscribers_, pending_, reply_memory_,
                                                   observation_, log_)),
      publishing_(publisher_) {}

void PropertyEngine::End() {
  publishing_.End();
  reply_memory_->End();
}

void PropertyEngine::DeclareQuiet(std::string_view component, std::string_view group_guid,
                                  std::string_view guid) {
  observation_->DeclareQuiet(component, group_guid, guid);
}

void PropertyEngine::PublishPass() {
  publisher_->Pass();
}

bool PropertyEngine::HandleMessage(const PropertyMessage& message,
                                   const std::shared_ptr<ClientConnection>& sender,
                                   ReplyBuffer& reply) {
  if (message.Has(keys::kSetRequests) && !HandleSetRequests(*catalog_, message, *sender, log_))
    return ExplainEnd(*sender, "sent sets of more than 32 MiB to pass on");
  Reply answer = Reply::kNone;
  if (message.Has(keys::kGetRequests) || message.Has(keys::kGetAll))
    answer = BuildReply(*catalog_, message, *sender, *reply_memory_, reply);
  if (answer == Reply::kTooLong)
    return ExplainEnd(*sender, "asked for a reply of more than 64 MiB");
  if ((message.Has(keys::kSubscribeRequests) || message.Has(keys::kSubscribeAll)) &&
      !Subscribe(message, sender))
    return false;
  if (!TakePublications(message, sender)) return false;
  if (message.Has(keys::kDisconnect)) {
    Unsubscribe(*sender);
    return false;
  }
  if (answer == Reply::kNone) return true;
  if (reply.size() > kKeptReplyBytes) return SendReply(*sender, reply_memory_->Share(reply));
  const bool sent = SendReply(*sender, reply);
  if (reply.capacity() > kKeptReplyBytes)
    reply_memory_->GiveBack(std::exchange(reply, ReplyBuffer()));
  return sent;
}

bool PropertyEngine::ExplainEnd(ClientConnection& client, const std::string& cause) const {
  client.ExplainEnd("it " + cause);
  LogIn(DebugZone::kError, log_,
        [&] { return ClientText(client) + " " + cause + ": its session ends"; });
  return false;
}

// A driver session's client has no account and no bound. Values over the properties of others are
// on no client's account, and stay when it goes; the client that adds to them ends when they are
// too much.
bool PropertyEngine::IsWithinBounds(ClientConnection& client, bool over_others) const {
  const ClientAccount* const account = client.account();
  if (account == nullptr) return true;
  if (account->IsOverdrawn()) {
    return ExplainEnd(client,
                      "has more than " + std::to_string(account->most()) + " bytes kept for it");
  }
  if (!over_others || ComponentProperty::ForeignBytes() <= account->most()) return true;
  return ExplainEnd(client,
                    "published over a property of another client, and there are more than " +
                        std::to_string(account->most()) + " bytes of such values");
}

// After each entry, so that one message can't go far beyond what is allowed.
bool PropertyEngine::TakePublications(const PropertyMessage& message,
                                      const std::shared_ptr<ClientConnection>& sender) {
  bool within = true;
  message.ForEachPublication([&](const PropertyResponseRecord& entry) {
    if (sender->ended()) return false;
    within = IsWithinBounds(*sender, presence_.Apply(entry, sender));
    return within;
  });
  return within && IsWithinBounds(*sender, false);
}

bool PropertyEngine::Subscribe(const PropertyMessage& message,
                               const std::shared_ptr<ClientConnection>& sender) {
  NewKeys added(*sender);
  bool within = true;
  message.ForEachSubscribeRequest([&](const PropertyAddress& address) {
    added.Add(address);
    within = IsWithinBounds(*sender, false);
    return within && !sender->ended();
  });
  if (!within) return false;
  bool to_all = false;
  do {
    if (sender->ended()) return true;
    const ScopedLock hold(subscribers_->lock);
    to_all = subscribers_->Add(sender, added.keys).keys.empty();
  } while (!added.keys.empty());
  // A property that comes from here on finds the subscription; these are the ones that came before.
  if (to_all) {
    observation_->ObserveAll(sender->ended_flag());
  } else {
    message.ForEachSubscribeRequest([&](const PropertyAddress& address) {
      observation_->ObserveNamed(address);
      return !sender->ended();
    });
  }
  LogIn(DebugZone::kInfo, log_, [&] {
    return ClientText(*sender) + " subscribes to " +
           (to_all ? std::string("all properties")
                   : std::to_string(message.Count(keys::kSubscribeRequests)) + " more");
  });
  return true;
}

void PropertyEngine::Unsubscribe(const ClientConnection& client) noexcept {
  std::shared_ptr<Subscriber> removed;
  {
    const ScopedLock hold(subscribers_->lock);
    removed = subscribers_->Remove(client);
  }
  if (!removed) return;
  LogIn(DebugZone::kInfo, log_, [&] { return ClientText(client) + " is no subscriber any more"; });
}

// A reply and a notification to the same client must not mix on its stream. The client's own lock is
// enough for that, as long as it is taken under the list's: a period's end that comes later waits
// for it. For the list's lock others would wait, and a write may take a system call. A client that
// is no subscriber can become one only on this thread. The client is woken when the locks are free.
template <class Frame>
bool PropertyEngine::SendReply(ClientConnection& sender, const Frame& frame) {
  std::shared_ptr<Subscriber> subscriber;  // the publisher may drop it from the list meanwhile
  EventFlags::PendingWake wake;
  subscribers_->lock.Enter();
  if (Subscriber* const found = subscribers_->Find(sender)) subscriber = found->shared_from_this();
  if (!subscriber) {
    subscribers_->lock.Leave();
    return WriteWhole(sender, frame, wake);
  }
  const ScopedLock hold_own(subscriber->write_lock);
  subscribers_->lock.Leave();
  return WriteWhole(sender, frame, wake);
}

// A service that ends closes all sessions at once: one by one they would announce to each other,
// for longer than their threads are waited for, properties that go with the engine anyway.
void PropertyEngine::ConnectionEnded(const ClientConnection& client) noexcept {
  if (client.ended()) return;
  Unsubscribe(client);
  presence_.WithdrawAllOf(client);
}

}  // namespace valmere
