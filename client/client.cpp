// A get waits for the next message that holds properties. Answers come in the order of the gets, so
// when one was not waited for to the end, counting it is enough to tell it from the next one's.
#include "client/client.h"

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
  // An empty property GUID stands for the whole group.
  const PropertyAddress group{"", std::string(group_guid), ""};
  return Ask(GetFrame({&group, 1}), deadline);
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

// The message also gets a property that nobody has: the answer comes when the subscription stands,
// and no notification ever says "not found".
Result<void> Client::SubscribeAll(Deadline deadline) {
  if (Result<void> sent = SendFrame(SubscribeAllFrame(), deadline); !sent) return sent;
  subscribed_ = true;
  for (;;) {
    Result<Incoming> message = ReceiveMessage(deadline);
    if (!message) return message.error();
    if (!message->properties) continue;
    for (Property& property : *message->properties) {
      if (property.status == kNotFound) return {};
      changes_.push_back(std::move(property));
    }
  }
}

Result<std::vector<Property>> Client::ReceiveChanges(Deadline deadline) {
  while (changes_.empty()) {
    Result<Incoming> message = ReceiveMessage(deadline);
    if (!message) return message.error();
    if (message->properties) changes_ = std::move(*message->properties);
  }
  return std::exchange(changes_, {});
}

// Sets that come along are kept for ReceiveSets.
Result<Incoming> Client::ReceiveMessage(Deadline deadline) {
  if (Result<void> received = transport_->Receive(text_, deadline); !received)
    return received.error();
  Result<Incoming> message = ReadMessage(text_);
  if (message) {
    for (SetRequest& set : message->sets) {
      sets_.push_back(std::move(set));
    }
  }
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
  if (subscribed_)
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
