// A get waits for the next message that holds properties. Answers come in the order of the gets, so
// when one was not waited for to the end, counting it is enough to tell it from the next one's.
#include "client/client.h"

#include <algorithm>
#include <iterator>
#include <utility>

#include "client/message.h"
#include "client/socket_transport.h"

namespace valmere::client {

Result<Client> Client::Connect(const std::string& path, Deadline deadline) {
  Result<std::unique_ptr<Transport>> transport = ConnectSocket(path, deadline);
  if (!transport) return transport.error();
  return Client(std::move(*transport));
}

Result<std::vector<Property>> Client::GetAll(Deadline deadline) {
  return Ask(GetAllFrame(), deadline);
}

Result<std::vector<Property>> Client::Get(std::span<const PropertyAddress> addresses,
                                          Deadline deadline) {
  if (addresses.empty()) return std::vector<Property>();
  return Ask(GetFrame(addresses), deadline);
}

Result<std::vector<Property>> Client::GetGroup(std::string_view group_guid, Deadline deadline) {
  return Ask(GetGroupFrame(group_guid), deadline);
}

Result<void> Client::Set(std::span<const SetRequest> requests, Deadline deadline) {
  return SendFrame(SetFrame(requests), deadline);
}

Result<void> Client::Publish(std::span<const Property> properties, Deadline deadline) {
  return SendFrame(PublishFrame(properties, kSuccessful), deadline);
}

Result<void> Client::Withdraw(std::span<const Property> properties, Deadline deadline) {
  return SendFrame(PublishFrame(properties, kNoLongerAvailable), deadline);
}

Result<std::vector<SetRequest>> Client::ReceiveSets(Deadline deadline) {
  while (sets_.empty()) {
    Result<Incoming> message = ReceiveMessage(deadline);
    if (!message) return message.error();
    if (message->properties && awaited_answers_ > 0) --awaited_answers_;
  }
  return std::exchange(sets_, {});
}

// No address at all would mean every property to the service, and named ones would narrow a
// subscription to all.
Result<void> Client::Subscribe(std::span<const PropertyAddress> addresses, Deadline deadline) {
  if (addresses.empty()) return Error{ErrorKind::kInvalid, "a subscription has to name a property"};
  if (subscribed_ == Subscribed::kToAll)
    return Error{ErrorKind::kInvalid, "a client that is subscribed to all can't subscribe to some"};
  if (Result<void> sent = SendFrame(SubscribeFrame(addresses), deadline); !sent) return sent;
  subscribed_ = Subscribed::kToSome;
  return AwaitConfirmation(deadline);
}

Result<void> Client::SubscribeAll(Deadline deadline) {
  if (subscribed_ == Subscribed::kToSome)
    return Error{ErrorKind::kInvalid, "a client that is subscribed to some can't subscribe to all"};
  if (Result<void> sent = SendFrame(SubscribeAllFrame(), deadline); !sent) return sent;
  subscribed_ = Subscribed::kToAll;
  return AwaitConfirmation(deadline);
}

// The message that subscribes also gets a property that does not exist: the answer comes when the
// subscription stands.
Result<void> Client::AwaitConfirmation(Deadline deadline) {
  ++awaited_confirmations_;
  while (awaited_confirmations_ > 0)
    if (Result<void> received = ReceiveNotification(deadline); !received) return received;
  return {};
}

Result<std::vector<Property>> Client::ReceiveChanges(Deadline deadline) {
  while (changes_.empty())
    if (Result<void> received = ReceiveNotification(deadline); !received) return received.error();
  return std::exchange(changes_, {});
}

// Answers that were given up before the subscription come before all notifications.
Result<void> Client::ReceiveNotification(Deadline deadline) {
  Result<Incoming> message = ReceiveMessage(deadline);
  if (!message) return message.error();
  if (!message->properties) return {};
  if (awaited_answers_ > 0)
    --awaited_answers_;
  else if (awaited_confirmations_ > 0 && IsConfirmation(*message->properties))
    --awaited_confirmations_;
  else
    std::ranges::move(*message->properties, std::back_inserter(changes_));
  return {};
}

// Sets that come along are kept for ReceiveSets.
Result<Incoming> Client::ReceiveMessage(Deadline deadline) {
  if (Result<void> received = transport_->Receive(text_, deadline); !received)
    return received.error();
  Result<Incoming> message = ReadMessage(text_);
  if (message)
    for (SetRequest& set : message->sets)
      sets_.push_back(std::move(set));
  return message;
}

Result<void> Client::Disconnect(Deadline deadline) {
  Result<void> sent = SendFrame(DisconnectFrame(), deadline);
  transport_->Close();
  return sent;
}

Result<void> Client::SendFrame(const Result<std::string>& frame, Deadline deadline) {
  if (!frame) return frame.error();
  return transport_->Send(*frame, deadline);
}

Result<std::vector<Property>> Client::Ask(const Result<std::string>& frame, Deadline deadline) {
  if (subscribed_ != Subscribed::kNot)
    return Error{ErrorKind::kInvalid, "a subscribed client can't tell answers from notifications"};
  if (Result<void> sent = SendFrame(frame, deadline); !sent) return sent.error();
  ++awaited_answers_;
  return ReceiveAnswer(deadline);
}

// Reads up to the answer to the get sent last.
Result<std::vector<Property>> Client::ReceiveAnswer(Deadline deadline) {
  for (;;) {
    Result<Incoming> message = ReceiveMessage(deadline);
    if (!message) return message.error();
    if (message->properties && --awaited_answers_ == 0) return std::move(*message->properties);
  }
}

}  // namespace valmere::client
