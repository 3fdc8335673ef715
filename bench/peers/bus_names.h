// What bus_service and its clients call things by, and the handles that both hold.
#pragma once

#include <systemd/sd-bus.h>

#include <memory>
#include <stdexcept>
#include <string>

namespace valmere::bench {

constexpr char kBusName[] = "printer.Bench";
constexpr char kBusPath[] = "/printer";
constexpr char kBusInterface[] = "printer.Bench";
constexpr char kBusChanged[] = "Changed";

struct ReleaseBus {
  void operator()(sd_bus* bus) const { sd_bus_close_unref(bus); }
};
using Bus = std::unique_ptr<sd_bus, ReleaseBus>;

struct ReleaseMessage {
  void operator()(sd_bus_message* message) const { sd_bus_message_unref(message); }
};
using Message = std::unique_ptr<sd_bus_message, ReleaseMessage>;

inline void CheckBus(int result, const char* what) {
  if (result < 0) throw std::runtime_error(std::string("the bus: ") + what);
}

inline Bus NewBus() {
  sd_bus* bus = nullptr;
  CheckBus(sd_bus_new(&bus), "no memory");
  return Bus(bus);
}

// A connection to the broker at a socket, or, without one, to the service that listens there.
inline Bus BusAt(const std::string& socket, bool has_broker) {
  Bus bus = NewBus();
  CheckBus(sd_bus_set_address(bus.get(), ("unix:path=" + socket).c_str()), "a bad address");
  CheckBus(sd_bus_set_bus_client(bus.get(), has_broker ? 1 : 0), "no client");
  CheckBus(sd_bus_start(bus.get()), "it can't be reached");
  return bus;
}

}  // namespace valmere::bench
