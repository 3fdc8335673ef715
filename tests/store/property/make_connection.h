// A connection that publishes properties, and is no more than an identity here.
#pragma once

#include <functional>
#include <memory>
#include <utility>

#include "net/client_connection.h"

namespace valmere::test {

inline std::shared_ptr<ClientConnection> MakeConnection() {
  return std::make_shared<ClientConnection>(nullptr);
}

// The same, which calls a function when it goes.
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

}  // namespace valmere::test
