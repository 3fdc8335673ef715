// A connection to the property service.
#pragma once

#include <cstddef>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "client/deadline.h"
#include "client/property.h"
#include "client/result.h"
#include "client/transport.h"

namespace valmere::client {

struct Incoming;

// Purpose: reads, sets and publishes properties over one connection. The service handles what is
// sent on a connection in order, so an answer to a get means that all before it has been handled.
// Owner: the caller. What a client publishes lives as long as its connection.
// Threads: one at a time, but Interrupt may be called from any, and from a signal handler.
// Errors: values, see ErrorKind. After kTimeout, kInterrupted or kInvalid the connection can still
// be used, unless the time-out came while sending.
class Client {
 public:
  explicit Client(std::unique_ptr<Transport> transport) : transport_(std::move(transport)) {}
  // Over the socket at `path`; DefaultSocketPath says where the service usually listens.
  static Result<Client> Connect(const std::string& path, Deadline deadline);

  Result<std::vector<Property>> GetAll(Deadline deadline);
  // One answer for each address, in order. A property that is not there has the status kNotFound.
  Result<std::vector<Property>> Get(std::span<const PropertyAddress> addresses, Deadline deadline);
  // Every property of a group, of all owners; one answer of status kNotFound when there is none.
  Result<std::vector<Property>> GetGroup(std::string_view group_guid, Deadline deadline);

  // Sent, not answered: the owner decides what becomes of it.
  Result<void> Set(std::span<const SetRequest> requests, Deadline deadline);

  // Makes properties known, or reports new values of those that are.
  Result<void> Publish(std::span<const Property> properties, Deadline deadline);
  // Takes published properties back.
  Result<void> Withdraw(std::span<const Property> properties, Deadline deadline);
  // Waits for sets of published properties; at least one.
  Result<std::vector<SetRequest>> ReceiveSets(Deadline deadline);

  // Asks for notifications of properties that change, come or go, and returns when the service has
  // noted it. A client subscribes to properties by address, as often as it likes, or to all there
  // are and all to come; after the one, the other gives kInvalid. Notifications look like answers,
  // so a subscribed client can't ask any more: gets give kInvalid.
  Result<void> Subscribe(std::span<const PropertyAddress> addresses, Deadline deadline);
  Result<void> SubscribeAll(Deadline deadline);
  // Waits for notifications; at least one entry. One that has gone has the status
  // kNoLongerAvailable.
  Result<std::vector<Property>> ReceiveChanges(Deadline deadline);

  // Ends the session after everything sent before; nothing can be sent after it.
  Result<void> Disconnect(Deadline deadline);
  // Makes the call that waits for the service, or else the next one, return kInterrupted.
  void Interrupt() noexcept { transport_->Interrupt(); }

 private:
  Result<void> SendFrame(const Result<std::string>& frame, Deadline deadline);
  Result<std::vector<Property>> Ask(const Result<std::string>& frame, Deadline deadline);
  Result<std::vector<Property>> ReceiveAnswer(Deadline deadline);
  Result<void> AwaitConfirmation(Deadline deadline);
  Result<void> ReceiveNotification(Deadline deadline);
  Result<Incoming> ReceiveMessage(Deadline deadline);

  std::unique_ptr<Transport> transport_;
  std::string text_;              // of the message received last; kept for its room
  std::vector<SetRequest> sets_;  // received while an answer was waited for
  // Without an answer yet, given-up ones too: gets, and subscriptions.
  std::size_t awaited_answers_ = 0;
  std::size_t awaited_confirmations_ = 0;
  enum class Subscribed { kNot, kToSome, kToAll };
  Subscribed subscribed_ = Subscribed::kNot;
  std::vector<Property> changes_;  // received while a subscription was on its way
};

}  // namespace valmere::client
