// The limit for every service: a program that does nothing with what comes on its socket but count
// and send as many bytes. `bare_server PATH`.
#include <poll.h>
#include <sys/resource.h>

#include <algorithm>
#include <cstdlib>
#include <string>
#include <vector>

#include "bench/peers/bare_protocol.h"
#include "tests/support/unix_socket.h"

namespace valmere::bench {
namespace {

class BareServer {
 public:
  explicit BareServer(const std::string& path) {
    watched_.push_back({test::ListenOn(path, SOMAXCONN), POLLIN, 0});
  }

  void Serve() {
    for (;;) {
      poll(watched_.data(), watched_.size(), -1);
      for (std::size_t i = 1; i < watched_.size(); ++i)
        if (watched_[i].revents != 0) Answer(watched_[i]);
      std::erase_if(watched_, [](const pollfd& watched) { return watched.fd < 0; });
      if (watched_[0].revents != 0)
        watched_.push_back({accept4(watched_[0].fd, nullptr, nullptr, SOCK_CLOEXEC), POLLIN, 0});
    }
  }

 private:
  void Answer(pollfd& client) {
    char request[kBareRequestBytes];
    if (recv(client.fd, request, sizeof request, MSG_WAITALL) <= 0) {
      std::erase(listeners_, client.fd);
      close(client.fd);
      client.fd = -1;
      return;
    }
    if (request[0] == kBareGet) Send(client.fd, kBareReplyBytes);
    if (request[0] == kBareGetAll)
      Send(client.fd, std::strtoul(request + 1, nullptr, 10) * kBareEntryBytes);
    if (request[0] == kBareListen) listeners_.push_back(client.fd);
    if (request[0] == kBareTell)
      for (const int listener : listeners_)
        Send(listener, kBareReplyBytes);
  }
  void Send(int client, std::size_t bytes) {
    if (bytes > text_.size()) text_.resize(bytes, 'x');
    test::SendAll(client, std::string_view(text_).substr(0, bytes));
  }

  std::vector<pollfd> watched_;  // the first is what clients connect to
  std::vector<int> listeners_;
  std::string text_;
};

}  // namespace
}  // namespace valmere::bench

int main(int argc, char** argv) {
  if (argc != 2) return 2;
  valmere::bench::BareServer(argv[1]).Serve();
}
