// Published properties, and connections that are no more than an identity here.
#pragma once

#include <functional>
#include <memory>
#include <string_view>
#include <utility>

#include "net/client_connection.h"
#include "store/property/component_property.h"

namespace valmere::test {

// One that calls a function when it is destroyed.
inline std::shared_ptr<ClientConnection> MakeConnectionThatTells(std::function<void()> on_gone) {
  class Stream final : public Connection {
   public:
    explicit Stream(std::function<void()> on_gone) : on_gone_(std::move(on_gone)) {}
    ~Stream() override { on_gone_(); }
    int Read(void* /*buffer*/, int /*length*/) override { return kFailed; }
    int Write(const void* /*buffer*/, int length) override { return length; }
    void Close() override {}
    bool IsOpen() const override { return true; }

   private:
    const std::function<void()> on_gone_;
  };
  return std::make_shared<ClientConnection>(std::make_shared<Stream>(std::move(on_gone)));
}

inline std::shared_ptr<ClientConnection> MakeConnection() {
  return MakeConnectionThatTells([] {});
}

inline std::shared_ptr<ComponentProperty> MakeOfComponent(
    std::string_view component, std::string_view group_guid, std::string_view guid,
    std::shared_ptr<ClientConnection> connection = nullptr) {
  return ComponentProperty::Make("value", guid, "Name", group_guid, "Group", component, "Component",
                                 std::move(connection));
}

inline bool AnyCanOwn(const ClientConnection&) {
  return true;
}

}  // namespace valmere::test
