// Method calls and signals of a message bus: to a service behind a broker, and to one that its
// clients connect to.
#include <sys/socket.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <fstream>

#include "bench/messages.h"
#include "bench/peers/bus_names.h"
#include "bench/peers/peer.h"
#include "tests/support/socket_client.h"
#include "tests/support/unix_socket.h"

namespace valmere::bench {
namespace {

class BusClient : public PeerClient {
 public:
  BusClient(const std::string& socket, bool has_broker)
      : name_(has_broker ? kBusName : nullptr), bus_(BusAt(socket, has_broker)) {}

  void Get() override { Call("Get", "ss", "Measured Group", "Measured Property 0"); }
  void Fill(int count, std::size_t value_bytes) override {
    Call("Fill", "uu", static_cast<std::uint32_t>(count), static_cast<std::uint32_t>(value_bytes));
  }
  std::size_t GetAll(int) override {
    const Message reply = Call("GetAll", "");
    std::size_t bytes = 0;
    const char* name = nullptr;
    const char* value = nullptr;
    CheckBus(sd_bus_message_enter_container(reply.get(), 'a', "{ss}"), "another answer");
    while (sd_bus_message_read(reply.get(), "{ss}", &name, &value) > 0)
      bytes += std::string_view(name).size() + std::string_view(value).size();
    return bytes;
  }
  void Subscribe() override {
    CheckBus(sd_bus_match_signal(bus_.get(), nullptr, name_, kBusPath, kBusInterface, kBusChanged,
                                 Take, this),
             "no subscription");
    Call("Listen", "");
  }
  void Change(int number) override {
    CheckBus(sd_bus_call_method_async(bus_.get(), nullptr, name_, kBusPath, kBusInterface, "Change",
                                      nullptr, nullptr, "u", static_cast<std::uint32_t>(number)),
             "no call");
    CheckBus(sd_bus_flush(bus_.get()), "it takes nothing");
  }
  void ReceiveChange(int number) override {
    while (value_ != ValueOf(number, kPeerValueBytes)) {
      const int processed = sd_bus_process(bus_.get(), nullptr);
      CheckBus(processed, "it has gone");
      if (processed == 0) CheckBus(sd_bus_wait(bus_.get(), UINT64_MAX), "it has gone");
    }
  }

 private:
  static int Take(sd_bus_message* signal, void* client, sd_bus_error*) {
    const char* name = nullptr;
    const char* value = nullptr;
    const int read = sd_bus_message_read(signal, "ss", &name, &value);
    if (read > 0) static_cast<BusClient*>(client)->value_ = value;
    return read;
  }
  template <class... Arguments>
  Message Call(const char* method, const char* types, Arguments... arguments) {
    sd_bus_message* reply = nullptr;
    CheckBus(sd_bus_call_method(bus_.get(), name_, kBusPath, kBusInterface, method, nullptr, &reply,
                                types, arguments...),
             "no answer");
    return Message(reply);
  }

  const char* const name_;  // of the service on the broker
  const Bus bus_;
  std::string value_;  // the last that it was told
};

class DirectBusPeer : public Peer {
 public:
  DirectBusPeer() : Peer("sd-bus peer to peer") {}

  std::unique_ptr<PeerClient> Connect() const override {
    return std::make_unique<BusClient>(Socket(), false);
  }

 protected:
  void Launch(const Folder& folder) override {
    Run({BUS_SERVICE, "direct", folder.Path("socket")});
  }
};

// Where dbus-broker's launcher writes its log; without a socket there it does not start.
class Journal {
 public:
  Journal() : descriptor_(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
    const sockaddr_un address = test::UnixAddress(kPath);
    const auto* place = reinterpret_cast<const sockaddr*>(&address);
    if (connect(descriptor_, place, sizeof address) == 0) return;
    unlink(kPath);
    is_ours_ = bind(descriptor_, place, sizeof address) == 0;
  }
  ~Journal() {
    close(descriptor_);
    if (is_ours_) unlink(kPath);
  }
  Journal(const Journal&) = delete;
  Journal& operator=(const Journal&) = delete;

 private:
  static constexpr char kPath[] = "/run/systemd/journal/socket";

  const int descriptor_;
  bool is_ours_ = false;
};

class BrokerPeer : public Peer {
 public:
  BrokerPeer() : Peer("dbus-broker") {
    AwaitAnswer([this] { const test::SocketClient client(manager_folder_.Path("socket")); });
  }

  std::unique_ptr<PeerClient> Connect() const override {
    return std::make_unique<BusClient>(Socket(), true);
  }

 protected:
  // Its launcher wants a bus of the user's service manager, and its own socket handed in.
  void Launch(const Folder& folder) override {
    setenv("DBUS_SESSION_BUS_ADDRESS", ("unix:path=" + manager_folder_.Path("socket")).c_str(), 1);
    const int listening = test::ListenOn(folder.Path("socket"), SOMAXCONN);
    Run({"dbus-broker-launch", "--scope", "user", "--config-file",
         Configuration(folder, folder.Path("socket"))},
        listening);
    close(listening);
    Run({BUS_SERVICE, "broker", folder.Path("socket")});
  }

 private:
  static std::string Configuration(const Folder& folder, const std::string& socket) {
    const std::string path = folder.Path("configuration");
    std::ofstream(path) << "<busconfig><type>session</type><listen>unix:path=" << socket
                        << "</listen><auth>EXTERNAL</auth><policy context=\"default\">"
                           "<allow send_destination=\"*\"/><allow receive_sender=\"*\"/>"
                           "<allow own=\"*\"/></policy></busconfig>";
    return path;
  }

  const Journal journal_;
  const Folder manager_folder_;
  const Program manager_{{"dbus-daemon", "--nofork", "--config-file",
                          Configuration(manager_folder_, manager_folder_.Path("socket"))}};
};

}  // namespace

std::unique_ptr<Peer> MakeDirectBusPeer() {
  return std::make_unique<DirectBusPeer>();
}

std::unique_ptr<Peer> MakeBrokerPeer() {
  return std::make_unique<BrokerPeer>();
}

}  // namespace valmere::bench
