// What callers see: frames are made and errors get their names here, the rest is the core's.
#include "client/session.h"

#include <system_error>
#include <utility>

#include "client/message.h"
#include "client/session_core.h"

namespace valmere::client {
namespace {

// Puts the name of the call before an error's text.
template <class Value>
Result<Value> Named(const std::string& call, Result<Value> result) {
  if (result) return result;
  return Error{result.error().kind, call + ": " + result.error().text};
}

std::string NameOf(const PropertyAddress& address) {
  return address.group_guid + ":" + address.guid + " of " + address.component;
}

std::string NameOf(const Property& property) {
  return property.name;
}

std::string NameOf(const SetRequest& request) {
  return NameOf(request.address);
}

// The one, or how many.
template <class Entry>
std::string NameOf(std::span<const Entry> entries) {
  if (entries.size() == 1) return NameOf(entries.front());
  return std::to_string(entries.size()) + " properties";
}

}  // namespace

Subscription& Subscription::operator=(Subscription&& other) noexcept {
  if (this == &other) return *this;
  End();
  core_ = std::move(other.core_);
  entry_ = std::move(other.entry_);
  return *this;
}

void Subscription::End() {
  const auto entry = std::exchange(entry_, nullptr);
  const auto core = std::exchange(core_, {}).lock();
  if (core && entry) core->subscriptions().Unsubscribe(*entry);
}

Result<Session> Session::Open(Connector connector, SessionOptions options,
                              OptionalDeadline deadline) {
  try {
    auto core = std::make_shared<SessionCore>(std::move(connector), std::move(options));
    if (Result<void> opened = core->Open(core->DeadlineOf(deadline)); !opened)
      return opened.error();
    return Session(std::move(core));
  } catch (const std::system_error& error) {
    return Error{ErrorKind::kCannotConnect, std::string("cannot connect: ") + error.what()};
  }
}

Session::Session(Session&& other) noexcept = default;

Session& Session::operator=(Session&& other) noexcept {
  if (this == &other) return *this;
  if (core_) core_->Stop();
  core_ = std::move(other.core_);
  return *this;
}

Session::~Session() {
  if (core_) core_->Stop();
}

Result<std::vector<Property>> Session::GetAll(OptionalDeadline deadline) {
  return Named("reading all properties", core_->Ask(GetAllFrame(), core_->DeadlineOf(deadline)));
}

Result<Property> Session::Get(const PropertyAddress& address, OptionalDeadline deadline) {
  Result<std::vector<Property>> answer = Get({&address, 1}, deadline);
  if (!answer) return answer.error();
  if (answer->size() == 1) return std::move(answer->front());
  return Error{ErrorKind::kProtocol, "reading " + NameOf(address) + ": the service answered with " +
                                         std::to_string(answer->size()) + " properties"};
}

Result<std::vector<Property>> Session::Get(std::span<const PropertyAddress> addresses,
                                           OptionalDeadline deadline) {
  if (addresses.empty()) return std::vector<Property>();
  return Named("reading " + NameOf(addresses),
               core_->Ask(GetFrame(addresses), core_->DeadlineOf(deadline)));
}

Result<std::vector<Property>> Session::GetGroup(std::string_view group_guid,
                                                OptionalDeadline deadline) {
  return Named("reading group " + std::string(group_guid),
               core_->Ask(GetGroupFrame(group_guid), core_->DeadlineOf(deadline)));
}

Result<void> Session::Set(std::span<const SetRequest> requests, OptionalDeadline deadline) {
  return Named("setting " + NameOf(requests),
               core_->Send(SetFrame(requests), core_->DeadlineOf(deadline)));
}

Result<Subscription> Session::Subscribe(std::span<const PropertyAddress> addresses,
                                        ChangeCallback callback, OptionalDeadline deadline) {
  auto entry = std::make_shared<SubscriptionEntry>(
      SubscriptionEntry{false, {addresses.begin(), addresses.end()}, std::move(callback)});
  const auto done = Named("subscribing to " + NameOf(addresses),
                          core_->subscriptions().Subscribe(entry, core_->DeadlineOf(deadline)));
  if (!done) return done.error();
  return Subscription(core_, std::move(entry));
}

Result<Subscription> Session::SubscribeAll(ChangeCallback callback, OptionalDeadline deadline) {
  auto entry =
      std::make_shared<SubscriptionEntry>(SubscriptionEntry{true, {}, std::move(callback)});
  const auto done = Named("subscribing to all properties",
                          core_->subscriptions().Subscribe(entry, core_->DeadlineOf(deadline)));
  if (!done) return done.error();
  return Subscription(core_, std::move(entry));
}

Result<void> Session::Publish(std::span<const Property> properties, SetCallback callback,
                              OptionalDeadline deadline) {
  return Named(
      "publishing " + NameOf(properties),
      core_->publisher().Publish(properties, std::move(callback), core_->DeadlineOf(deadline)));
}

Result<void> Session::Update(std::span<const SetRequest> values, OptionalDeadline deadline) {
  return Named("updating " + NameOf(values),
               core_->publisher().Update(values, core_->DeadlineOf(deadline)));
}

Result<void> Session::Withdraw(std::span<const PropertyAddress> addresses,
                               OptionalDeadline deadline) {
  return Named("withdrawing " + NameOf(addresses),
               core_->publisher().Withdraw(addresses, core_->DeadlineOf(deadline)));
}

Result<void> Session::Disconnect(OptionalDeadline deadline) {
  return Named("disconnecting", core_->Disconnect(core_->DeadlineOf(deadline)));
}

}  // namespace valmere::client
