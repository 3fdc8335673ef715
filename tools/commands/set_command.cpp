// A set has no answer; the answer to a get behind it says that the service has handled it. Names
// are resolved against the list of everything: the service looks properties up by GUID alone.
#include <strings.h>

#include <algorithm>
#include <memory>
#include <utility>
#include <vector>

#include "client/service_properties.h"
#include "tools/commands/command.h"
#include "tools/commands/commands.h"
#include "tools/names/name_resolver.h"
#include "tools/process/input.h"
#include "tools/service/observation.h"
#include "tools/service/service_clients.h"
#include "tools/service/service_file.h"
#include "tools/service/storing.h"

namespace valmere::tools {
namespace {

using client::Client;
using client::Deadline;
using client::ErrorKind;
using client::Property;
using client::PropertyAddress;

struct SetOptions {
  std::string name;
  std::string value;
  bool verify = false;
  bool durable = false;
  std::optional<std::string> root;
};

constexpr const char* kAboutSet = R"(
VALUE is taken as it is; "-" stands for what comes on standard input, without
the line feed at its end. A VALUE that begins with a dash goes behind "--".

Without --verify, set is done when the service has handled the request; it fails
if the service kept the value of a property of its own. With --verify it waits
until the property reports the value: exit status 6 if nothing is reported in
time, 5 if it is another value.

With --durable, for the service's own properties, set returns when the property
file holds the value and is on the disk; exit status 6 if it does not in time.
The file is looked at where it lies: below --root, else $VALMERE_ROOT, else the
folder in which the service works, else /var/lib/valmere.)";

std::string Quoted(const std::string& text) {
  return "\"" + text + "\"";
}

std::optional<bool> BooleanOf(const std::string& text) {
  if (strcasecmp(text.c_str(), "true") == 0) return true;
  if (strcasecmp(text.c_str(), "false") == 0) return false;
  return std::nullopt;
}

bool IsBool(const Property& property) {
  return property.value == "True" || property.value == "False";
}

// Booleans are reported in one case and may be asked for in any.
bool Means(const std::string& wanted, const Property& reported) {
  if (reported.value == wanted) return true;
  return IsBool(reported) && BooleanOf(wanted) == BooleanOf(reported.value);
}

// What the property says after a set, if that tells anything: the service sets its own properties
// before it answers the next request; anybody else's owner takes its time and its liberties.
std::optional<Failure> Judge(const Property& before, const Property& after,
                             const std::string& wanted) {
  if (!after.found())
    return Failure{kExitNoSuchProperty, FullName(before) + " has gone: " + after.status};
  // Many texts mean the same boolean.
  const bool can_tell = before.component == client::kServiceComponent && !IsBool(before);
  if (can_tell && after.value == before.value && after.value != wanted)
    return Failure{kExitBadValue, FullName(before) + " did not take " + Quoted(wanted) +
                                      "; it is still " + Quoted(after.value)};
  return std::nullopt;
}

// Waits until the property reports the value.
std::optional<Failure> Verify(Client& client, Client& subscriber, const Property& before,
                              const std::string& wanted, Deadline deadline) {
  const PropertyAddress address = before.address();
  Property last = before;
  const auto ask = [&] { return client.Get({&address, 1}, deadline); };
  const auto is_done = [&](const Property& seen) {
    if (seen.address() == address) last = seen;
    return seen.address() == address && (!seen.found() || Means(wanted, seen));
  };
  const auto done = Observe(ask, subscriber, is_done, deadline);
  if (!done && done.error().kind != ErrorKind::kTimeout) return FailureOf(done.error());
  if (!last.found())
    return Failure{kExitNoSuchProperty, FullName(before) + " has gone: " + last.status};
  if (done) return std::nullopt;
  if (last.value != before.value)
    return Failure{kExitBadValue,
                   FullName(before) + " reports " + Quoted(last.value) + ", not " + Quoted(wanted)};
  return Failure{kExitTimeout, "time-out: " + FullName(before) + " is still " + Quoted(last.value)};
}

// Why a property's value is not the service's to store.
std::optional<Failure> CheckIsStored(const Property& property) {
  if (client::IsStored(property.address())) return std::nullopt;
  if (property.component == client::kServiceComponent)
    return Failure{kExitUsage, FullName(property) + " is not stored, so --durable means nothing"};
  return Failure{kExitUsage, FullName(property) + " is stored by its owner or not at all: " +
                                 "--durable is for the service's own properties"};
}

// The value of one of the service's own properties.
std::string ValueOf(const PropertyAddress& address, const std::vector<Property>& properties) {
  const auto found =
      std::find_if(properties.begin(), properties.end(),
                   [&](const Property& property) { return property.address() == address; });
  return found != properties.end() ? found->value : "";
}

class Setting {
 public:
  Setting(const GlobalOptions& global, const SetOptions& options)
      : global_(global),
        options_(options),
        clients_(global.socket),
        deadline_(Deadline::After(global.timeout)) {}

  std::optional<Failure> Run() {
    const auto client = clients_.Open(deadline_);
    if (!client) return FailureOf(client.error());
    client_ = *client;
    const auto properties = client_->GetAll(deadline_);
    if (!properties) return FailureOf(properties.error());
    const auto resolved = Resolve(options_.name, *properties);
    if (const Failure* failure = std::get_if<Failure>(&resolved)) return *failure;
    const Property& property = *std::get<const Property*>(resolved);
    if (options_.durable)
      return SetDurably(property, ValueOf(client::PropertyFileName(), *properties));
    return SetAndVerify(property);
  }

 private:
  std::optional<Failure> SetDurably(const Property& property, const std::string& path) {
    if (auto failure = CheckIsStored(property)) return failure;
    if (auto failure = CheckIsStorable(FullName(property), options_.value)) return failure;
    auto file = ServiceFile::Find(options_.root, global_.socket, path);
    if (const Failure* failure = std::get_if<Failure>(&file)) return *failure;
    Storing storing(clients_, *client_, std::get<ServiceFile>(std::move(file)), deadline_);
    if (auto failure = storing.Begin({property})) return failure;
    if (auto failure = SetAndVerify(property)) return failure;
    // There are lines for changes alone.
    if (!changed_) {
      if (auto failure = storing.RequestLines()) return failure;
    }
    return storing.Await();
  }

  std::optional<Failure> SetAndVerify(const Property& property) {
    if (!options_.verify) return Set(property);
    const auto subscriber = clients_.Open(deadline_);
    if (!subscriber) return FailureOf(subscriber.error());
    if (const auto done = (*subscriber)->SubscribeAll(deadline_); !done)
      return FailureOf(done.error());
    if (auto failure = Set(property)) return failure;
    return Verify(*client_, **subscriber, property, options_.value, deadline_);
  }

  std::optional<Failure> Set(const Property& property) {
    const PropertyAddress address = property.address();
    const client::SetRequest request{address, options_.value};
    if (const auto sent = client_->Set({&request, 1}, deadline_); !sent)
      return FailureOf(sent.error());
    const auto after = client_->Get({&address, 1}, deadline_);
    if (!after) return FailureOf(after.error());
    if (after->size() != 1) return Failure{kExitRefused, "the service gave no answer to a get"};
    changed_ = after->front().value != property.value;
    return Judge(property, after->front(), options_.value);
  }

  const GlobalOptions& global_;
  const SetOptions& options_;
  ServiceClients clients_;
  const Deadline deadline_;
  Client* client_ = nullptr;
  bool changed_ = false;
};

}  // namespace

void AddSetCommand(CLI::App& app, Invocation& invocation) {
  using enum Command::Need;
  const auto options = std::make_shared<SetOptions>();
  Command set(app, "set", "Ask a property's owner for a new value");
  set.AddPositional("NAME", options->name, "The property", kRequired);
  set.AddPositional("VALUE", options->value, "Its new value; - reads standard input", kRequired);
  set.AddFlag("--verify", options->verify, "Wait until the property reports the value");
  set.AddFlag("--durable", options->durable, "Wait until the value is on the disk");
  set.AddText("--root", "PATH", options->root, "The service's root, for --durable");
  set.SetFooter(kAboutSet);
  set.SetRun(invocation, [options, &invocation](Output&) -> std::optional<Failure> {
    if (options->value == "-") {
      auto input = ReadInput("-");
      if (const Failure* failure = std::get_if<Failure>(&input)) return *failure;
      options->value = std::get<std::string>(std::move(input));
      if (options->value.ends_with('\n')) options->value.pop_back();
    }
    return Setting(invocation.global, *options).Run();
  });
}

}  // namespace valmere::tools
