// A connection that publishes properties, and is no more than an identity here.
#pragma once

#include <memory>

#include "protocol/client_connection.h"

namespace valmere::testing {

inline std::shared_ptr<ClientConnection> MakeConnection() {
  return std::make_shared<ClientConnection>(nullptr);
}

}  // namespace valmere::testing
