// Set requests go to the owner over the connection that published the property, which changes when
// the component comes back over a new one; it is guarded by the lock that guards the value, so that
// what is charged for both changes with them. It is released before it is charged anew: an account
// is never higher for a moment than it was and will be.
#include "store/property/component_property.h"

#include <utility>

namespace valmere {

std::shared_ptr<ComponentProperty> ComponentProperty::Make(
    std::string_view value, std::string_view guid, std::string_view name,
    std::string_view group_guid, std::string_view group_name, std::string_view component,
    std::string_view component_name, std::shared_ptr<ClientConnection> connection) {
  return std::make_shared<ComponentProperty>(
      MakeToken(), value,
      PropertyIdentity(guid, name, group_guid, group_name, component, component_name),
      std::move(connection));
}

ComponentProperty::ComponentProperty(MakeToken token, std::string_view value,
                                     PropertyIdentity identity,
                                     std::shared_ptr<ClientConnection> connection)
    : StringProperty(token, value, std::move(identity)), connection_(std::move(connection)) {
  Charge();
}

ComponentProperty::~ComponentProperty() {
  Release();
}

std::size_t ComponentProperty::BytesBesideValue() const {
  return kBytesBesideTexts + guid().size() + name().size() + group_guid().size() +
         group_name().size() + component().size() + component_name().size();
}

void ComponentProperty::Charge() const {
  if (!connection_) return;
  const std::size_t value = Snapshot().view().size();
  if (value_is_foreign_) foreign_bytes_.fetch_add(value, std::memory_order_relaxed);
  if (ClientAccount* const account = connection_->account())
    account->Charge(BytesBesideValue() + (value_is_foreign_ ? 0 : value));
}

void ComponentProperty::Release() const {
  if (!connection_) return;
  const std::size_t value = Snapshot().view().size();
  if (value_is_foreign_) foreign_bytes_.fetch_sub(value, std::memory_order_relaxed);
  if (ClientAccount* const account = connection_->account())
    account->Release(BytesBesideValue() + (value_is_foreign_ ? 0 : value));
}

void ComponentProperty::StoreText(std::string_view value) {
  SharedText text(value);
  const ScopedLock hold(value_lock());
  Release();
  value_is_foreign_ = false;
  PutText(std::move(text));
  Charge();
}

bool ComponentProperty::TakeValue(std::string_view value, const ClientConnection& publisher) {
  const bool changes = Snapshot().view() != value;
  SharedText text(changes ? value : std::string_view());
  bool foreign = false;
  {
    const ScopedLock hold(value_lock());
    foreign = connection_.get() != &publisher;
    Release();
    if (changes || !foreign) value_is_foreign_ = foreign;
    if (changes) PutText(std::move(text));
    Charge();
  }
  if (changes) NotifyChanged();
  return changes && foreign;
}

std::shared_ptr<ClientConnection> ComponentProperty::connection() const {
  const ScopedLock hold(value_lock());
  return connection_;
}

void ComponentProperty::set_connection(std::shared_ptr<ClientConnection> connection) {
  // The old handle, perhaps the last one of its connection, is released after the lock.
  SwapConnection(connection);
}

void ComponentProperty::SwapConnection(std::shared_ptr<ClientConnection>& connection) {
  const ScopedLock hold(value_lock());
  Release();
  connection_.swap(connection);
  value_is_foreign_ = false;
  Charge();
}

bool ComponentProperty::PublishedOn(const ClientConnection& connection) const {
  const ScopedLock hold(value_lock());
  return connection_.get() == &connection;
}

}  // namespace valmere
