// The limit: bare_server, which is another process on a socket and does nothing else.
#include "bench/peers/bare_protocol.h"
#include "bench/peers/peer.h"
#include "tests/support/socket_client.h"

namespace valmere::bench {
namespace {

class BareClient : public PeerClient {
 public:
  explicit BareClient(const std::string& path) : client_(path) {}

  void Get() override {
    Ask(kBareGet);
    client_.Read(kBareReplyBytes);
  }
  void Fill(int, std::size_t) override {}
  std::size_t GetAll(int count) override {
    Ask(kBareGetAll, count);
    return client_.Read(static_cast<std::size_t>(count) * kBareEntryBytes).size();
  }
  void Subscribe() override {
    Ask(kBareListen);
    Get();
  }
  void Change(int) override { Ask(kBareTell); }
  void ReceiveChange(int) override { client_.Read(kBareReplyBytes); }

 private:
  void Ask(BareRequest request, int count = 0) {
    std::string bytes = static_cast<char>(request) + std::to_string(count);
    bytes.resize(kBareRequestBytes);
    client_.Send(bytes);
  }

  test::SocketClient client_;
};

class BarePeer : public Peer {
 public:
  BarePeer() : Peer("limit") {}

  bool IsBare() const override { return true; }
  std::unique_ptr<PeerClient> Connect() const override {
    return std::make_unique<BareClient>(Socket());
  }

 protected:
  void Launch(const Folder& folder) override { Run({BARE_SERVER, folder.Path("socket")}); }
};

}  // namespace

std::unique_ptr<Peer> MakeBarePeer() {
  return std::make_unique<BarePeer>();
}

}  // namespace valmere::bench
