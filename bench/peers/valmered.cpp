// valmered, by frames on its socket.
#include "bench/daemon.h"
#include "bench/messages.h"
#include "bench/peers/peer.h"

namespace valmere::bench {
namespace {

constexpr char kSubscription[] =
    R"({"PropertySubscribeRequests": [{"Component": "6A1D2E3F-0000-4000-8000-000000000001",)"
    R"("GUID": "6A1D2E3F-0000-4000-8000-000000000002:6A1D2E3F-0000-4000-8000-100000000000"}]})";

class ValmeredClient : public PeerClient {
 public:
  explicit ValmeredClient(const std::string& path) : client_(path) {}

  void Get() override {
    client_.Send(get_);
    client_.ReadFrame();
  }
  void Fill(int count, std::size_t value_bytes) override { Publish(client_, count, value_bytes); }
  std::size_t GetAll(int) override {
    client_.Send(get_all_);
    return client_.ReadFrame().size();
  }
  void Subscribe() override {
    client_.Send(FrameOf(kSubscription));
    // The answer says that the subscription stands.
    Get();
  }
  // The component that owns the property reports its new value.
  void Change(int number) override { client_.Send(ChangeFrame(number)); }
  void ReceiveChange(int number) override {
    while (!TellsChange(client_.ReadFrame(), number)) {
    }
  }

 private:
  const std::string get_ = FrameOf(GetText());
  const std::string get_all_ = FrameOf(R"({"GetAllProperties": true})");
  SocketClient client_;
};

class ValmeredPeer : public Peer {
 public:
  ValmeredPeer() : Peer("ours") {}

  std::unique_ptr<PeerClient> Connect() const override {
    return std::make_unique<ValmeredClient>(Socket());
  }

 protected:
  void Launch(const Folder& folder) override { Run(ValmeredCommand(folder)); }
};

}  // namespace

std::unique_ptr<Peer> MakeValmeredPeer() {
  return std::make_unique<ValmeredPeer>();
}

}  // namespace valmere::bench
