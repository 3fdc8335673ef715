// A property that a client component has published.
#pragma once

#include <memory>
#include <string_view>

#include "net/client_connection.h"
#include "store/property/string_property.h"

namespace valmere {

// Purpose: a text property together with the component that owns it and the way to reach it.
// Owner: the component registry; pending updates keep it after its removal from there.
// Threads: any.
// Errors: as StringProperty.
class ComponentProperty : public StringProperty {
 public:
  static std::shared_ptr<ComponentProperty> Make(std::string_view value, std::string_view guid,
                                                 std::string_view name, std::string_view group_guid,
                                                 std::string_view group_name,
                                                 std::string_view component,
                                                 std::string_view component_name,
                                                 std::shared_ptr<ClientConnection> connection);
  ComponentProperty(MakeToken, std::string_view value, PropertyIdentity identity,
                    std::shared_ptr<ClientConnection> connection);

  // The connection on which the component published it last.
  std::shared_ptr<ClientConnection> connection() const;
  void set_connection(std::shared_ptr<ClientConnection> connection);
  // The same; `connection` is the one that was replaced then.
  void SwapConnection(std::shared_ptr<ClientConnection>& connection);
  bool PublishedOn(const ClientConnection& connection) const;

 private:
  std::shared_ptr<ClientConnection> connection_ GUARDED_BY(value_lock());
};

}  // namespace valmere
