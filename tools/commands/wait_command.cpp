// A property may be waited for before there is one, so the name is looked for again until then.
#include <memory>

#include "tools/commands/command.h"
#include "tools/commands/commands.h"
#include "tools/names/name_resolver.h"
#include "tools/service/observation.h"
#include "tools/service/service_clients.h"

namespace valmere::tools {
namespace {

using client::Client;
using client::Deadline;
using client::ErrorKind;
using client::Property;

struct WaitOptions {
  std::string condition;
  std::optional<std::chrono::milliseconds> timeout;
};

class Waiting {
 public:
  Waiting(const GlobalOptions& global, const WaitOptions& options)
      : clients_(global.socket),
        deadline_(Deadline::After(options.timeout.value_or(global.timeout))) {
    const std::size_t equals = options.condition.find('=');
    name_ = options.condition.substr(0, equals);
    if (equals != std::string::npos) value_ = options.condition.substr(equals + 1);
  }

  std::optional<Failure> Run() {
    const auto requester = clients_.Open(deadline_);
    if (!requester) return FailureOf(requester.error());
    const auto subscriber = clients_.Open(deadline_);
    if (!subscriber) return FailureOf(subscriber.error());
    if (const auto done = (*subscriber)->SubscribeAll(deadline_); !done)
      return FailureOf(done.error());
    const auto done = Observe([&] { return Ask(**requester); }, **subscriber,
                              [&](const Property& seen) { return See(seen); }, deadline_);
    if (ambiguous_) return ambiguous_;
    if (done) return std::nullopt;
    if (done.error().kind != ErrorKind::kTimeout) return FailureOf(done.error());
    return Failure{kExitTimeout, "time-out: " + State()};
  }

 private:
  client::Result<std::vector<Property>> Ask(Client& requester) {
    auto properties = requester.GetAll(deadline_);
    if (!properties) return properties;
    const auto resolved = Resolve(name_, *properties);
    const Failure* failure = std::get_if<Failure>(&resolved);
    if (failure != nullptr && failure->code == kExitUsage) ambiguous_ = *failure;
    return properties;
  }

  bool See(const Property& seen) {
    if (ambiguous_) return true;
    if (!seen.found() || !Matches(name_, seen)) return false;
    last_ = seen;
    return !value_ || seen.value == *value_;
  }

  std::string State() const {
    if (last_) return FullName(*last_) + " is \"" + last_->value + "\"";
    return "there is no property \"" + name_ + "\"";
  }

  ServiceClients clients_;
  const Deadline deadline_;
  std::string name_;
  std::optional<std::string> value_;
  std::optional<Property> last_;
  std::optional<Failure> ambiguous_;
};

}  // namespace

void AddWaitCommand(CLI::App& app, Invocation& invocation) {
  const auto options = std::make_shared<WaitOptions>();
  Command wait(app, "wait", "Wait until a property is there or has a value");
  wait.AddPositional("NAME[=VALUE]", options->condition,
                     "The property, and its value if that matters", Command::Need::kRequired);
  wait.AddSeconds("--timeout", options->timeout, "The longest to wait, instead of 5");
  wait.SetRun(invocation, [options, &invocation](Output&) {
    return Waiting(invocation.global, *options).Run();
  });
}

}  // namespace valmere::tools
