// A property that a client component has published.
#pragma once

#include <atomic>
#include <cstddef>
#include <memory>
#include <string_view>

#include "net/client_connection.h"
#include "store/property/string_property.h"

namespace valmere {

// Purpose: a text property together with the component that owns it and the way to reach it. While
// it has an owner, its bytes are charged to the owner's account, or, of a value that another client
// published, to one that all such values share: no client can use up the account of another.
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
  ~ComponentProperty() override;

  // What a property takes beside its value and its texts, about.
  static constexpr std::size_t kBytesBesideTexts = 256;
  // Of all values that clients have published over properties of others.
  static std::size_t ForeignBytes() { return foreign_bytes_.load(std::memory_order_relaxed); }

  // Takes the value that a client has published, and announces it if it is a change. True when the
  // client is not the owner and the value is a change.
  bool TakeValue(std::string_view value, const ClientConnection& publisher);

  // The connection on which the component published it last.
  std::shared_ptr<ClientConnection> connection() const;
  void set_connection(std::shared_ptr<ClientConnection> connection);
  // The same; `connection` is the one that was replaced then.
  void SwapConnection(std::shared_ptr<ClientConnection>& connection);
  bool PublishedOn(const ClientConnection& connection) const;

 private:
  void StoreText(std::string_view value) override;
  // Both are called around every change of what is charged.
  void Charge() const REQUIRES(value_lock());
  void Release() const REQUIRES(value_lock());
  std::size_t BytesBesideValue() const;

  static inline std::atomic<std::size_t> foreign_bytes_{0};

  std::shared_ptr<ClientConnection> connection_ GUARDED_BY(value_lock());
};

}  // namespace valmere
