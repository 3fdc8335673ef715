// Clients are held in a list, because a signal handler keeps their addresses.
#include "tools/service/service_clients.h"

#include "client/socket_transport.h"

namespace valmere::tools {

using client::Client;
using client::Deadline;
using client::Result;
using client::Transport;

Result<Client*> ServiceClients::Open(Deadline deadline, const Wrapper& wrap) {
  Result<std::unique_ptr<Transport>> transport = client::ConnectSocket(socket_, deadline);
  if (!transport) return transport.error();
  Client& opened =
      clients_.emplace_back(wrap ? wrap(std::move(*transport)) : std::move(*transport));
  interrupt_.Watch(opened);
  return &opened;
}

void ServiceClients::CloseAll() {
  for (Client& open : clients_)
    interrupt_.Forget(open);
  clients_.clear();
}

std::optional<Failure> WithClient(const GlobalOptions& options, const ClientCommand& command) {
  ServiceClients clients(options.socket);
  const Deadline deadline = Deadline::After(options.timeout);
  const Result<Client*> opened = clients.Open(deadline);
  if (!opened) return FailureOf(opened.error());
  return command(**opened, deadline);
}

}  // namespace valmere::tools
