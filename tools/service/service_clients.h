// How commands reach the service.
#pragma once

#include <functional>
#include <list>
#include <memory>
#include <optional>

#include "client/client.h"
#include "client/transport.h"
#include "tools/process/exit_code.h"
#include "tools/process/interrupt.h"
#include "tools/service/invocation.h"

namespace valmere::tools {

// Purpose: the clients of the service that one command uses; SIGINT and SIGTERM interrupt the one
// that waits.
// Owner: a command; one at a time in the process.
// Threads: one.
// Errors: values, those of Client::Connect.
class ServiceClients {
 public:
  // Puts something around a transport.
  using Wrapper =
      std::function<std::unique_ptr<client::Transport>(std::unique_ptr<client::Transport>)>;

  explicit ServiceClients(std::string socket) : socket_(std::move(socket)) {}
  ~ServiceClients() { CloseAll(); }
  ServiceClients(const ServiceClients&) = delete;
  ServiceClients& operator=(const ServiceClients&) = delete;

  // The client lives until CloseAll.
  client::Result<client::Client*> Open(client::Deadline deadline, const Wrapper& wrap = {});
  void CloseAll();
  // Waits until the deadline; false when a signal came.
  bool WaitUntil(client::Deadline deadline) const { return interrupt_.WaitUntil(deadline); }

 private:
  const std::string socket_;
  InterruptOnSignal interrupt_;
  std::list<client::Client> clients_;
};

// Connects, and hands the client to `command`; the time-out covers both.
using ClientCommand =
    std::function<std::optional<Failure>(client::Client& client, client::Deadline deadline)>;
std::optional<Failure> WithClient(const GlobalOptions& options, const ClientCommand& command);

}  // namespace valmere::tools
