// Names are resolved against the list of everything: the service looks properties up by GUID alone.
#include "tools/commands.h"

#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "tools/interrupt.h"
#include "tools/name_resolver.h"

namespace valmere::tools {
namespace {

using client::Client;
using client::Deadline;
using client::Property;

// The service sets its own properties before it answers the next request; anybody else's owner
// takes its time and its liberties.
constexpr char kServiceComponent[] = "955CFDC2-8EA6-478E-A927-7C870022EA03";

bool IsBool(const Property& property) {
  return property.value == "True" || property.value == "False";
}

// What the property says after a set, if that tells anything.
std::optional<Failure> Judge(const Property& before, const Property& after,
                             const std::string& wanted) {
  if (!after.found())
    return Failure{kExitNoSuchProperty, FullName(before) + " has gone: " + after.status};
  // Many texts mean the same boolean.
  const bool can_tell = before.component == kServiceComponent && !IsBool(before);
  if (can_tell && after.value == before.value && after.value != wanted)
    return Failure{kExitBadValue, FullName(before) + " did not take \"" + wanted +
                                      "\"; it is still \"" + after.value + "\""};
  return std::nullopt;
}

// Connects, and hands the client to `command`; the time-out covers both.
template <typename Command>
std::optional<Failure> WithClient(const Options& options, Command command) {
  InterruptOnSignal interrupt;
  const Deadline deadline = Deadline::After(options.timeout);
  client::Result<Client> client = Client::Connect(options.socket, deadline);
  if (!client) return FailureOf(client.error());
  interrupt.Watch(*client);
  return command(*client, deadline);
}

std::optional<Failure> RunPublish(const Options& options, Output& out) {
  auto made = MakePublication(options);
  if (const Failure* failure = std::get_if<Failure>(&made)) return *failure;
  return WithClient(options, [&](Client& client, Deadline) {
    return Publish(client, std::get<0>(std::move(made)), options.timeout, out);
  });
}

std::optional<Failure> RunCommand(const Options& options, Output& out) {
  switch (options.command) {
    case Options::Command::kList:
      return WithClient(
          options, [&](Client& client, Deadline deadline) { return List(client, deadline, out); });
    case Options::Command::kGet:
      return WithClient(options, [&](Client& client, Deadline deadline) {
        return Get(client, options, deadline, out);
      });
    case Options::Command::kSet:
      return WithClient(options, [&](Client& client, Deadline deadline) {
        return Set(client, options, deadline);
      });
    case Options::Command::kWatch:
      return WithClient(options, [&](Client& client, Deadline deadline) {
        return Watch(client, options, deadline, out);
      });
    case Options::Command::kPublish:
      break;
  }
  return RunPublish(options, out);
}

}  // namespace

std::optional<Failure> List(Client& client, Deadline deadline, Output& out) {
  const auto properties = client.GetAll(deadline);
  if (!properties) return FailureOf(properties.error());
  for (const Property& property : *properties) {
    out.Line(FullName(property) + "=" + property.value);
  }
  return std::nullopt;
}

// All or nothing: a script that reads the lines by their number must not get the wrong ones.
std::optional<Failure> Get(Client& client, const Options& options, Deadline deadline, Output& out) {
  const auto properties = client.GetAll(deadline);
  if (!properties) return FailureOf(properties.error());
  std::vector<const Property*> wanted;
  for (const std::string& name : options.names) {
    const auto resolved = Resolve(name, *properties);
    if (const Failure* failure = std::get_if<Failure>(&resolved)) return *failure;
    wanted.push_back(std::get<const Property*>(resolved));
  }
  for (const Property* property : wanted) {
    out.Line(property->value);
  }
  return std::nullopt;
}

// A set has no answer; the answer to a get behind it says that the service has handled it.
std::optional<Failure> Set(Client& client, const Options& options, Deadline deadline) {
  const auto properties = client.GetAll(deadline);
  if (!properties) return FailureOf(properties.error());
  const auto resolved = Resolve(options.name, *properties);
  if (const Failure* failure = std::get_if<Failure>(&resolved)) return *failure;
  const Property& property = *std::get<const Property*>(resolved);
  const client::PropertyAddress address = property.address();
  const client::SetRequest request{address, options.value};
  if (const auto sent = client.Set({&request, 1}, deadline); !sent) return FailureOf(sent.error());
  const auto after = client.Get({&address, 1}, deadline);
  if (!after) return FailureOf(after.error());
  if (after->size() != 1) return Failure{kExitRefused, "the service gave no answer to a get"};
  return Judge(property, after->front(), options.value);
}

// Each line is flushed: whoever reads them acts on changes as they happen.
std::optional<Failure> Watch(Client& client, const Options& options, Deadline deadline,
                             Output& out) {
  if (const auto done = client.SubscribeAll(deadline); !done) return FailureOf(done.error());
  Complain("watching");
  for (std::size_t printed = 0;;) {
    const auto changes = client.ReceiveChanges(Deadline::Never());
    if (!changes && changes.error().kind == client::ErrorKind::kInterrupted) return std::nullopt;
    if (!changes) return FailureOf(changes.error());
    for (const Property& property : *changes) {
      const bool gone = property.status == client::kNoLongerAvailable;
      out.Line(gone ? FullName(property) + " is gone" : FullName(property) + "=" + property.value);
      out.Flush();
      if (++printed == options.count) return std::nullopt;
    }
  }
}

int Run(const Options& options, Output& out) {
  std::optional<Failure> failure = RunCommand(options, out);
  out.Flush();
  if (!failure && out.failed()) failure = Failure{kExitRefused, "cannot write to standard output"};
  if (!failure) return kExitOk;
  Complain(failure->text);
  return failure->code;
}

}  // namespace valmere::tools
