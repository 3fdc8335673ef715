// A message broker, by the oldest version of its protocol: what is published on a topic comes back
// to each client that has subscribed to it, and what is to be kept comes with a subscription.
#include <unistd.h>

#include <fstream>

#include "bench/messages.h"
#include "bench/peers/peer.h"
#include "tests/support/socket_client.h"

namespace valmere::bench {
namespace {

enum Packet : unsigned char {
  kConnect = 0x10,
  kPublish = 0x30,
  kPublishKept = 0x31,
  kSubscribe = 0x82,
  kUnsubscribe = 0xa2
};

// A packet: its type, its length in groups of seven bits, its content.
std::string PacketOf(Packet type, const std::string& content) {
  std::string packet(1, static_cast<char>(type));
  std::size_t left = content.size();
  do {
    packet += static_cast<char>(left % 128 | (left >= 128 ? 0x80 : 0));
    left /= 128;
  } while (left > 0);
  return packet + content;
}

std::string Text(const std::string& text) {
  return std::string{static_cast<char>(text.size() >> 8), static_cast<char>(text.size())} + text;
}

class MosquittoClient : public PeerClient {
 public:
  explicit MosquittoClient(const std::string& path) : client_(path) {
    static int clients = 0;
    const std::string name = "bench" + std::to_string(++clients);
    client_.Send(
        PacketOf(kConnect, Text("MQTT") + std::string("\x04\x02\x00\x00", 4) + Text(name)));
    Receive();
    get_ = PacketOf(kPublish, Text("get/" + name) + ValueOf(0, kPeerValueBytes));
    SubscribeTo("get/" + name);
  }

  void Get() override {
    client_.Send(get_);
    Receive();
  }
  void Fill(int count, std::size_t value_bytes) override {
    for (int i = 0; i < count; ++i)
      client_.Send(PacketOf(kPublishKept, Text("all/Measured Property " + std::to_string(i)) +
                                              ValueOf(i, value_bytes)));
    // Handled in order.
    Get();
  }
  std::size_t GetAll(int count) override {
    std::size_t bytes = SubscribeTo("all/#");
    for (int i = 0; i < count; ++i)
      bytes += Receive().size();
    client_.Send(PacketOf(kUnsubscribe, std::string("\0\1", 2) + Text("all/#")));
    Receive();
    return bytes;
  }
  void Subscribe() override { SubscribeTo("change"); }
  void Change(int number) override {
    client_.Send(PacketOf(kPublish, Text("change") + ValueOf(number, kPeerValueBytes)));
  }
  void ReceiveChange(int number) override {
    while (Receive().find(ValueOf(number)) == std::string_view::npos) {
    }
  }

 private:
  std::size_t SubscribeTo(const std::string& topic) {
    client_.Send(PacketOf(kSubscribe, std::string("\0\1", 2) + Text(topic) + std::string(1, '\0')));
    return Receive().size();
  }
  // The content of the next packet.
  std::string_view Receive() {
    client_.Read(1);
    std::size_t length = 0;
    for (int shift = 0;; shift += 7) {
      const auto byte = static_cast<unsigned char>(client_.Read(1)[0]);
      length |= std::size_t{byte & 0x7fU} << shift;
      if ((byte & 0x80) == 0) break;
    }
    return client_.Read(length);
  }

  test::SocketClient client_;
  std::string get_;
};

class MosquittoPeer : public Peer {
 public:
  MosquittoPeer() : Peer("mosquitto") {}

  std::unique_ptr<PeerClient> Connect() const override {
    return std::make_unique<MosquittoClient>(Socket());
  }

 protected:
  // Its own bounds would drop most of what is asked for at once.
  void Launch(const Folder& folder) override {
    std::ofstream file(folder.Path("configuration"));
    file << "listener 0 " << folder.Path("socket") << "\nallow_anonymous true\nlog_dest none\n"
         << "max_queued_messages 0\nmax_queued_bytes 0\nset_tcp_nodelay true\n";
    if (geteuid() == 0) file << "user root\n";
    file.close();
    Run({"mosquitto", "-c", folder.Path("configuration")});
  }
};

}  // namespace

std::unique_ptr<Peer> MakeMosquittoPeer() {
  return std::make_unique<MosquittoPeer>();
}

}  // namespace valmere::bench
