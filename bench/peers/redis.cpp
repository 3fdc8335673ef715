// A store of keys and values in memory, by its own text protocol.
#include <charconv>

#include "bench/messages.h"
#include "bench/peers/peer.h"
#include "tests/support/socket_client.h"

namespace valmere::bench {
namespace {

// A command as the protocol has it: an array of texts.
std::string Command(const std::vector<std::string>& words) {
  std::string text = "*" + std::to_string(words.size()) + "\r\n";
  for (const std::string& word : words)
    text += "$" + std::to_string(word.size()) + "\r\n" + word + "\r\n";
  return text;
}

class RedisClient : public PeerClient {
 public:
  explicit RedisClient(const std::string& path) : client_(path) {}

  void Get() override {
    client_.Send(get_);
    Receive();
  }
  void Fill(int count, std::size_t value_bytes) override {
    client_.Send(Command({"SET", "one", ValueOf(0, kPeerValueBytes)}));
    Receive();
    for (int i = 0; i < count; ++i) {
      client_.Send(Command(
          {"HSET", "all", "Measured Property " + std::to_string(i), ValueOf(i, value_bytes)}));
      Receive();
    }
  }
  std::size_t GetAll(int) override {
    client_.Send(get_all_);
    return Receive();
  }
  void Subscribe() override {
    client_.Send(Command({"SUBSCRIBE", "change"}));
    Receive();
  }
  void Change(int number) override {
    if (changed_) Receive();  // how many heard of the one before
    changed_ = true;
    client_.Send(Command({"PUBLISH", "change", ValueOf(number, kPeerValueBytes)}));
  }
  void ReceiveChange(int number) override {
    while (Receive(), last_.find(ValueOf(number)) == std::string_view::npos) {
    }
  }

 private:
  // One reply with all that is in it; how many bytes. The last text of it stays.
  std::size_t Receive() {
    const std::string_view line = client_.ReadLine();
    const char kind = line[0];
    std::size_t sum = line.size() + 2;
    int count = 0;
    std::from_chars(line.data() + 1, line.data() + line.size(), count);
    if (kind == '$' && count >= 0) {
      last_ = client_.Read(static_cast<std::size_t>(count) + 2);
      sum += last_.size();
    }
    for (int i = 0; kind == '*' && i < count; ++i)
      sum += Receive();
    return sum;
  }

  const std::string get_ = Command({"GET", "one"});
  const std::string get_all_ = Command({"HGETALL", "all"});
  test::SocketClient client_;
  std::string_view last_;
  bool changed_ = false;
};

class RedisPeer : public Peer {
 public:
  RedisPeer() : Peer("redis") {}

  std::unique_ptr<PeerClient> Connect() const override {
    return std::make_unique<RedisClient>(Socket());
  }

 protected:
  void Launch(const Folder& folder) override {
    Run({"redis-server", "--port", "0", "--save", "", "--dir", folder.Path("."), "--unixsocket",
         folder.Path("socket")});
  }
};

}  // namespace

std::unique_ptr<Peer> MakeRedisPeer() {
  return std::make_unique<RedisPeer>();
}

}  // namespace valmere::bench
