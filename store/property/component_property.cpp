// Set requests go to the owner over the connection that published the property, which changes when
// the component comes back over a new one; it is guarded by the lock that guards the value.
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
    : StringProperty(token, value, std::move(identity)), connection_(std::move(connection)) {}

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
  connection_.swap(connection);
}

bool ComponentProperty::PublishedOn(const ClientConnection& connection) const {
  const ScopedLock hold(value_lock());
  return connection_.get() == &connection;
}

}  // namespace valmere
