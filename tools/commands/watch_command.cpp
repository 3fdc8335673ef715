// Changes come to a subscribed client; what it asks is asked on a second connection, because
// answers look like changes.
//
// Values that were read may be reported again: a change of just before the reading is delivered up
// to one publishing period later. For that long a change that repeats what was read, or that is
// older than it, is not printed. Later ones are all printed, because the commands
// among the properties tell of being set by a change to the same value.
#include <algorithm>
#include <charconv>
#include <map>
#include <memory>
#include <utility>

#include "client/service_properties.h"
#include "tools/commands/command.h"
#include "tools/commands/commands.h"
#include "tools/names/address_order.h"
#include "tools/names/property_pattern.h"
#include "tools/output/property_output.h"
#include "tools/service/service_clients.h"

namespace valmere::tools {
namespace {

using client::Client;
using client::Deadline;
using client::ErrorKind;
using client::Property;
using client::PropertyAddress;
using std::chrono::milliseconds;

constexpr milliseconds kUsualPeriod{500};
constexpr milliseconds kDeliveryTime{1000};  // beyond the period, on a machine with much to do
constexpr milliseconds kFirstPause{100};
constexpr milliseconds kLongestPause{5000};

constexpr const char* kAboutWatch = R"(
Prints each change as component/group/name=value, or "component/group/name is
gone" for a property that was taken back, until SIGINT or SIGTERM ends it.
--timeout is a proper end too, unless --count lines did not come: exit status 6.
After it has connected again, --reconnect prints what has changed meanwhile.)";

struct WatchOptions {
  std::vector<std::string> patterns;
  std::size_t count = 0;  // 0 for no end
  std::optional<milliseconds> timeout;
  bool initial = false;
  bool reconnect = false;
};

milliseconds PeriodAmong(const std::vector<Property>& properties) {
  unsigned period = 0;
  for (const Property& property : properties)
    if (property.address() == client::PublishingPeriod())
      std::from_chars(property.value.data(), property.value.data() + property.value.size(), period);
  return period == 0 ? kUsualPeriod : milliseconds(period);
}

class Watching {
 public:
  Watching(const GlobalOptions& global, const WatchOptions& options, Output& out)
      : global_(global),
        options_(options),
        out_(out),
        patterns_(options.patterns),
        clients_(global.socket),
        end_(options.timeout ? Deadline::After(*options.timeout) : Deadline::Never()) {}

  std::optional<Failure> Run();

 private:
  std::optional<client::Error> Connect(std::vector<Property>& properties);
  std::optional<client::Error> Follow();
  std::optional<client::Error> Reconnect();
  void TakeInitial(const std::vector<Property>& properties);
  void TakeDifferences(const std::vector<Property>& properties);
  void TakeChange(const Property& change);
  bool IsKnown(const Property& change);
  void Print(const Property& property);
  std::optional<Failure> Conclude(const client::Error& error) const;
  bool keeps_state() const { return options_.initial || options_.reconnect; }
  bool done() const { return out_.failed() || (options_.count > 0 && printed_ >= options_.count); }

  const GlobalOptions& global_;
  const WatchOptions& options_;
  Output& out_;
  const PropertyPatterns patterns_;
  ServiceClients clients_;
  const Deadline end_;
  Client* subscriber_ = nullptr;
  Client* requester_ = nullptr;
  std::size_t printed_ = 0;
  std::map<PropertyAddress, Property, AddressOrder> known_;  // when keeps_state()
  Deadline settled_ = Deadline::After(milliseconds(0));      // until then changes may be old
};

std::optional<Failure> Watching::Run() {
  std::vector<Property> properties;
  std::optional<client::Error> error = Connect(properties);
  if (error) return FailureOf(*error);
  Report("watching");
  TakeInitial(properties);
  while (!done()) {
    error = Follow();
    if (!error) break;
    if (options_.reconnect && error->kind == ErrorKind::kConnectionLost) {
      Report(error->text + "; trying again");
      error = Reconnect();
      if (!error) continue;
    }
    return Conclude(*error);
  }
  return std::nullopt;
}

std::optional<Failure> Watching::Conclude(const client::Error& error) const {
  if (error.kind == ErrorKind::kInterrupted) return std::nullopt;
  if (error.kind != ErrorKind::kTimeout || !end_.passed()) return FailureOf(error);
  if (options_.count == 0) return std::nullopt;
  return Failure{kExitTimeout, "time-out after " + std::to_string(printed_) + " of " +
                                   std::to_string(options_.count) + " lines"};
}

// Subscribes and then, when they are needed, gets all properties: no change falls between the two.
std::optional<client::Error> Watching::Connect(std::vector<Property>& properties) {
  clients_.CloseAll();
  const Deadline deadline = Deadline::After(global_.timeout);
  const auto subscriber = clients_.Open(deadline);
  if (!subscriber) return subscriber.error();
  subscriber_ = *subscriber;
  if (const auto done = subscriber_->SubscribeAll(deadline); !done) return done.error();
  if (!keeps_state()) return std::nullopt;
  const auto requester = clients_.Open(deadline);
  if (!requester) return requester.error();
  requester_ = *requester;
  auto answer = requester_->GetAll(deadline);
  if (!answer) return answer.error();
  properties = std::move(*answer);
  settled_ = Deadline::After(PeriodAmong(properties) + kDeliveryTime);
  return std::nullopt;
}

// Until there were as many lines as asked for.
std::optional<client::Error> Watching::Follow() {
  while (!done()) {
    const auto changes = subscriber_->ReceiveChanges(end_);
    if (!changes) return changes.error();
    for (const Property& change : *changes) {
      if (patterns_.Match(change)) TakeChange(change);
      if (done()) break;
    }
  }
  return std::nullopt;
}

// Nothing when it is connected again and has printed what has changed meanwhile.
std::optional<client::Error> Watching::Reconnect() {
  for (milliseconds pause = kFirstPause;; pause = std::min(2 * pause, kLongestPause)) {
    if (end_.passed()) return client::Error{ErrorKind::kTimeout, "time-out"};
    const Deadline next =
        end_.never() ? Deadline::After(pause) : Deadline::After(std::min(pause, end_.left()));
    if (!clients_.WaitUntil(next)) return client::Error{ErrorKind::kInterrupted, "interrupted"};
    std::vector<Property> properties;
    std::optional<client::Error> error = Connect(properties);
    if (!error) {
      Report("connected again");
      TakeDifferences(properties);
      return std::nullopt;
    }
    if (error->kind == ErrorKind::kInterrupted) return error;
  }
}

void Watching::TakeInitial(const std::vector<Property>& properties) {
  for (const Property* property : patterns_.Pick(properties)) {
    known_[property->address()] = *property;
    if (options_.initial && !done()) Print(*property);
  }
}

void Watching::TakeDifferences(const std::vector<Property>& properties) {
  auto before = std::exchange(known_, {});
  for (const Property* property : patterns_.Pick(properties)) {
    known_[property->address()] = *property;
    const auto same = before.find(property->address());
    if ((same == before.end() || same->second.value != property->value) && !done())
      Print(*property);
    if (same != before.end()) before.erase(same);
  }
  for (auto& [address, property] : before) {
    property.status = client::kNoLongerAvailable;
    if (!done()) Print(property);
  }
}

void Watching::TakeChange(const Property& change) {
  if (!settled_.passed() && IsKnown(change)) return;
  if (keeps_state()) {
    if (change.found())
      known_[change.address()] = change;
    else
      known_.erase(change.address());
  }
  Print(change);
}

bool Watching::IsKnown(const Property& change) {
  const auto known = known_.find(change.address());
  if (known == known_.end()) return !change.found();
  if (known->second.value == change.value && change.found()) return true;
  const PropertyAddress address = change.address();
  const auto now = requester_->Get({&address, 1}, Deadline::After(global_.timeout));
  return now && now->size() == 1 && now->front().found() &&
         now->front().value == known->second.value;
}

void Watching::Print(const Property& property) {
  PrintChange(property, out_);
  out_.Flush();  // the reader acts on changes as they happen
  ++printed_;
}

}  // namespace

void AddWatchCommand(CLI::App& app, Invocation& invocation) {
  const auto options = std::make_shared<WatchOptions>();
  Command watch(app, "watch", "Print each change of properties as it is told");
  watch.AddPositionals("PATTERN", options->patterns, "Only properties that match one of these",
                       Command::Need::kOptional);
  watch.AddCount(options->count, "End after so many lines");
  watch.AddSeconds("--timeout", options->timeout, "End after this time");
  watch.AddFlag("--initial", options->initial, "Print the current values first");
  watch.AddFlag("--reconnect", options->reconnect, "Connect again when the connection is lost");
  watch.SetFooter(kAboutWatch);
  watch.SetRun(invocation, [options, &invocation](Output& out) {
    return Watching(invocation.global, *options, out).Run();
  });
}

}  // namespace valmere::tools
