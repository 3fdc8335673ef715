// A simulated print head: it publishes two measurements and two settings, heats up or cools down to
// the temperature that is set, and counts labels at the speed that is set.
//
//   print_head        serves until SIGINT or SIGTERM, which withdraw its properties
#include <charconv>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <ctime>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

#include "client/session.h"
#include "client/socket_path.h"

namespace {

using namespace valmere::client;

constexpr std::string_view kComponent = "8C2B7A10-5D3E-4F61-9A84-2E7D0C5B1F36";
constexpr std::string_view kMeasurements = "1F6D3C92-8B47-4A0E-BD25-93C1E7A4F508";
constexpr std::string_view kSettings = "D40A95E7-2C18-4B73-8F6E-5A1B9C0D3E24";

Property Made(std::string_view group_guid, std::string_view group, std::string_view guid,
              std::string_view name, int value) {
  Property property;
  property.group_guid = group_guid;
  property.group_name = group;
  property.guid = guid;
  property.name = name;
  property.value = std::to_string(value);
  property.component = kComponent;
  property.component_name = "Print Head";
  return property;
}

// A whole number from `low` to `high`, and nothing else.
std::optional<int> NumberIn(std::string_view text, int low, int high) {
  int number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
  if (number < low || number > high) return std::nullopt;
  return number;
}

// What the head does. Settings come from the session's thread, time passes on the program's.
class PrintHead {
 public:
  PrintHead()
      : temperature_(Made(kMeasurements, "Measurements", "5A7E21D4-0B9C-4E38-A1F6-7C3D8E92B045",
                          "Temperature", 21)),
        labels_(Made(kMeasurements, "Measurements", "E9034B6F-7D52-4C1A-8E90-16A5F2C7D38B",
                     "Labels Printed", 0)),
        target_(Made(kSettings, "Settings", "3B81F5C0-E6A9-4D27-95B3-C04E7F1A2D68",
                     "Target Temperature", 45)),
        speed_(Made(kSettings, "Settings", "A26C0E98-41F7-4B5D-B3D8-F87E5C9016A3",
                    "Labels per Second", 2)) {}

  std::vector<Property> properties() const { return {temperature_, labels_, target_, speed_}; }

  // The new value if the head takes it.
  std::optional<SetRequest> Take(const SetRequest& set) {
    const std::lock_guard hold(lock_);
    if (set.address == target_.address()) return Changed(target_, NumberIn(set.value, 20, 80));
    if (set.address == speed_.address()) return Changed(speed_, NumberIn(set.value, 0, 50));
    return std::nullopt;  // a measurement can't be set
  }

  // Half a second goes by; the measurements after it.
  std::vector<SetRequest> PassTime() {
    const std::lock_guard hold(lock_);
    const int now = std::stoi(temperature_.value);
    const int wanted = std::stoi(target_.value);
    temperature_.value = std::to_string(now + (wanted - now) / 4 + (wanted > now) - (wanted < now));
    labels_.value = std::to_string(std::stoi(labels_.value) + (std::stoi(speed_.value) + 1) / 2);
    return {{temperature_.address(), temperature_.value}, {labels_.address(), labels_.value}};
  }

 private:
  static std::optional<SetRequest> Changed(Property& property, std::optional<int> number) {
    if (!number) return std::nullopt;
    property.value = std::to_string(*number);
    return SetRequest{property.address(), property.value};
  }

  std::mutex lock_;
  Property temperature_;
  Property labels_;
  Property target_;
  Property speed_;
};

int Fail(const Error& error) {
  std::fprintf(stderr, "print_head: %s\n", error.text.c_str());
  return 1;
}

// False once a signal of the set has come.
bool WaitHalfASecond(const sigset_t& signals) {
  const timespec half_a_second{0, 500'000'000};
  return sigtimedwait(&signals, nullptr, &half_a_second) < 0;
}

int Serve(const sigset_t& signals) {
  PrintHead head;
  Result<Session> opened = Session::Open(SocketConnector(DefaultSocketPath()));
  if (!opened) return Fail(opened.error());
  Session& session = *opened;

  const std::vector<Property> properties = head.properties();
  const auto on_set = [&](const SetRequest& set) {
    const std::optional<SetRequest> taken = head.Take(set);
    // While the connection is lost, the session keeps the value and reports it later.
    if (taken) (void)session.Update(*taken);
  };
  if (const auto published = session.Publish(properties, on_set); !published)
    return Fail(published.error());
  std::printf("print_head: %zu properties published\n", properties.size());
  std::fflush(stdout);

  while (WaitHalfASecond(signals))
    (void)session.Update(head.PassTime());
  if (const auto ended = session.Disconnect(); !ended) return Fail(ended.error());
  return 0;
}

}  // namespace

int main() {
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGINT);
  sigaddset(&signals, SIGTERM);
  // Blocked before there is any other thread, so that none of them takes the signal.
  pthread_sigmask(SIG_BLOCK, &signals, nullptr);
  return Serve(signals);
}
