// Clients are held in a list, because a signal handler keeps their addresses.
#include "tools/service/connections.h"

#include "client/socket_transport.h"

namespace valmere::tools {

using client::Client;
using client::Deadline;
using client::Result;
using client::Transport;

Result<Client*> Connections::Open(Deadline deadline, const Wrapper& wrap) {
  Result<std::unique_ptr<Transport>> transport = client::ConnectSocket(socket_, deadline);
  if (!transport) return transport.error();
  Client& opened =
      clients_.emplace_back(wrap ? wrap(std::move(*transport)) : std::move(*transport));
  interrupt_.Watch(opened);
  return &opened;
}

void Connections::CloseAll() {
  for (Client& open : clients_) {
    interrupt_.Forget(open);
  }
  clients_.clear();
}

std::optional<Failure> WithClient(const GlobalOptions& options, const ClientCommand& command) {
  Connections connections(options.socket);
  const Deadline deadline = Deadline::After(options.timeout);
  const Result<Client*> opened = connections.Open(deadline);
  if (!opened) return FailureOf(opened.error());
  return command(**opened, deadline);
}

}  // namespace valmere::tools
