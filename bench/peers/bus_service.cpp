// A service that answers method calls on one thread: `bus_service broker SOCKET` those that a
// broker brings, `bus_service direct SOCKET` those of clients that connect to itself.
#include <sys/epoll.h>
#include <systemd/sd-event.h>
#include <systemd/sd-id128.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <map>
#include <set>
#include <string_view>

#include "bench/messages.h"
#include "bench/peers/bus_names.h"
#include "bench/peers/peer.h"
#include "tests/support/unix_socket.h"

namespace valmere::bench {
namespace {

class BusService {
 public:
  BusService() { CheckBus(sd_event_default(&loop_), "no loop"); }
  BusService(const BusService&) = delete;
  BusService& operator=(const BusService&) = delete;

  void ServeBroker(const std::string& socket) {
    sd_bus* const bus = Serve(BusAt(socket, true));
    listeners_.insert(bus);
    CheckBus(sd_bus_request_name(bus, kBusName, 0), "no name");
    sd_event_loop(loop_);
  }
  void ServeClients(const std::string& socket) {
    has_broker_ = false;
    sd_event_add_io(loop_, nullptr, test::ListenOn(socket, SOMAXCONN), EPOLLIN, Accept, this);
    sd_event_loop(loop_);
  }

 private:
  sd_bus* Serve(Bus made) {
    static const sd_bus_vtable kMethods[] = {
        SD_BUS_VTABLE_START(0),
        SD_BUS_METHOD("Get", "ss", "s", AnswerGet, SD_BUS_VTABLE_UNPRIVILEGED),
        SD_BUS_METHOD("GetAll", "", "a{ss}", AnswerGetAll, SD_BUS_VTABLE_UNPRIVILEGED),
        SD_BUS_METHOD("Fill", "uu", "", AnswerFill, SD_BUS_VTABLE_UNPRIVILEGED),
        SD_BUS_METHOD("Listen", "", "", AnswerListen, SD_BUS_VTABLE_UNPRIVILEGED),
        SD_BUS_METHOD("Change", "u", "", AnswerChange, SD_BUS_VTABLE_UNPRIVILEGED),
        SD_BUS_SIGNAL("Changed", "ss", 0),
        SD_BUS_VTABLE_END};
    sd_bus* const bus = made.get();
    CheckBus(sd_bus_add_object_vtable(bus, nullptr, kBusPath, kBusInterface, kMethods, this),
             "no methods");
    CheckBus(sd_bus_attach_event(bus, loop_, 0), "no loop");
    buses_[bus] = std::move(made);
    return bus;
  }

  // No exception may leave what the library calls, so an error is returned from here on.
  static int Accept(sd_event_source*, int socket, std::uint32_t, void* service) {
    try {
      const int client = accept4(socket, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
      Bus bus = NewBus();
      CheckBus(sd_bus_set_fd(bus.get(), client, client), "a bad socket");
      CheckBus(sd_bus_set_server(bus.get(), 1, sd_id128_t{}), "no server");
      CheckBus(sd_bus_add_filter(bus.get(), nullptr, ForgetIfGone, service), "no filter");
      CheckBus(sd_bus_start(bus.get()), "it does not start");
      Self(service).Serve(std::move(bus));
      return 0;
    } catch (const std::exception&) {
      return -ECONNABORTED;
    }
  }
  static int ForgetIfGone(sd_bus_message* message, void* service, sd_bus_error*) {
    if (!sd_bus_message_is_signal(message, "org.freedesktop.DBus.Local", "Disconnected")) return 0;
    sd_bus* const bus = sd_bus_message_get_bus(message);
    Self(service).listeners_.erase(bus);
    Self(service).buses_.erase(bus);
    return 0;
  }

  static int AnswerGet(sd_bus_message* call, void*, sd_bus_error*) {
    return sd_bus_reply_method_return(call, "s", ValueOf(0, kPeerValueBytes).c_str());
  }
  static int AnswerGetAll(sd_bus_message* call, void* service, sd_bus_error*) {
    sd_bus_message* made = nullptr;
    if (const int error = sd_bus_message_new_method_return(call, &made); error < 0) return error;
    const Message reply(made);
    sd_bus_message_open_container(made, 'a', "{ss}");
    for (const auto& [name, value] : Self(service).values_)
      sd_bus_message_append(made, "{ss}", name.c_str(), value.c_str());
    sd_bus_message_close_container(made);
    return sd_bus_send(nullptr, made, nullptr);
  }
  static int AnswerFill(sd_bus_message* call, void* service, sd_bus_error*) {
    std::uint32_t count = 0;
    std::uint32_t value_bytes = 0;
    const int read = sd_bus_message_read(call, "uu", &count, &value_bytes);
    if (read < 0) return read;
    for (int i = 0; i < static_cast<int>(count); ++i)
      Self(service).values_["Measured Property " + std::to_string(i)] = ValueOf(i, value_bytes);
    return sd_bus_reply_method_return(call, "");
  }
  // A broker knows itself which of its clients listen.
  static int AnswerListen(sd_bus_message* call, void* service, sd_bus_error*) {
    if (!Self(service).has_broker_) Self(service).listeners_.insert(sd_bus_message_get_bus(call));
    return sd_bus_reply_method_return(call, "");
  }
  static int AnswerChange(sd_bus_message* call, void* service, sd_bus_error*) {
    std::uint32_t change = 0;
    const int read = sd_bus_message_read(call, "u", &change);
    if (read < 0) return read;
    const std::string value = ValueOf(static_cast<int>(change), kPeerValueBytes);
    for (sd_bus* const listener : Self(service).listeners_)
      sd_bus_emit_signal(listener, kBusPath, kBusInterface, kBusChanged, "ss",
                         "Measured Property 0", value.c_str());
    return sd_bus_reply_method_return(call, "");
  }
  static BusService& Self(void* service) { return *static_cast<BusService*>(service); }

  sd_event* loop_ = nullptr;
  bool has_broker_ = true;
  std::map<sd_bus*, Bus> buses_;
  std::set<sd_bus*> listeners_;
  std::map<std::string, std::string> values_;
};

}  // namespace
}  // namespace valmere::bench

int main(int argc, char** argv) {
  if (argc != 3) return 2;
  try {
    valmere::bench::BusService service;
    if (std::string_view(argv[1]) == "broker")
      service.ServeBroker(argv[2]);
    else
      service.ServeClients(argv[2]);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "bus_service: %s\n", error.what());
    return 1;
  }
}
