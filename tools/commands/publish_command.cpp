// A component in miniature: it makes its properties known, takes over each value that it is asked
// to, says so, and takes the properties back at the end. A set is printed when its new value has
// been reported, so that a program that waits for the line finds it.
#include <algorithm>
#include <memory>
#include <utility>
#include <variant>

#include "tools/commands/command.h"
#include "tools/commands/commands.h"
#include "tools/names/name_resolver.h"
#include "tools/names/publication.h"
#include "tools/output/property_output.h"
#include "tools/service/service_clients.h"

namespace valmere::tools {
namespace {

using client::Client;
using client::Deadline;
using client::Property;

constexpr const char* kAboutPublish = R"(
A NAME is [component/][group/]name. The properties last as long as the command
runs: it prints each set that it receives as NAME=VALUE and takes the value over,
until SIGINT or SIGTERM ends it. GUIDs are made of the names, so that they are
the same each time.)";

std::vector<Property> PropertiesOf(const std::vector<Published>& publication) {
  std::vector<Property> properties;
  properties.reserve(publication.size());
  for (const Published& published : publication)
    properties.push_back(published.property);
  return properties;
}

// Runs until it is interrupted, which is its proper end, or until the reader of its output has
// gone.
class Publishing {
 public:
  Publishing(Client& client, std::vector<Published> publication, std::chrono::milliseconds timeout,
             Output& out)
      : client_(client), publication_(std::move(publication)), timeout_(timeout), out_(out) {}

  std::optional<Failure> Run() {
    if (auto failure = Announce()) return failure;
    if (auto failure = Hold()) return failure;
    return TakeBack();
  }

 private:
  // Publishes, and waits until the service has taken it all.
  std::optional<Failure> Announce() {
    const Deadline deadline = Deadline::After(timeout_);
    const std::vector<Property> properties = PropertiesOf(publication_);
    if (const auto sent = client_.Publish(properties, deadline); !sent)
      return FailureOf(sent.error());
    const std::vector<client::PropertyAddress> addresses{properties.front().address()};
    const auto answer = client_.Get(addresses, deadline);
    if (!answer) return FailureOf(answer.error());
    if (answer->empty() || !answer->front().found())
      return Failure{kExitRefused, "the service did not take " + FullName(properties.front())};
    std::string names;
    for (const Property& property : properties)
      names += " " + FullName(property);
    Report("published" + names);
    return std::nullopt;
  }

  // Answers sets.
  std::optional<Failure> Hold() {
    while (!out_.failed()) {
      const auto sets = client_.ReceiveSets(Deadline::Never());
      if (!sets && sets.error().kind == client::ErrorKind::kInterrupted) break;
      if (!sets) return FailureOf(sets.error());
      for (const client::SetRequest& set : *sets)
        if (auto failure = Apply(set)) return failure;
    }
    return std::nullopt;
  }

  std::optional<Failure> Apply(const client::SetRequest& set) {
    const auto target = std::find_if(
        publication_.begin(), publication_.end(),
        [&](const Published& published) { return published.property.address() == set.address; });
    if (target == publication_.end()) return std::nullopt;
    target->property.value = set.value;
    const auto sent = client_.Publish({&target->property, 1}, Deadline::After(timeout_));
    if (!sent) return FailureOf(sent.error());
    if (out_.form() == OutputForm::kText)
      out_.ShownLine(out_.Styled(TextStyle::kName, target->name) + "=" + out_.Shown(set.value));
    else
      PrintProperty(target->property, TextForm::kAssignment, out_);
    out_.Flush();
    return std::nullopt;
  }

  // A get behind it says that the service has handled the withdrawal.
  std::optional<Failure> TakeBack() {
    const Deadline deadline = Deadline::After(timeout_);
    const std::vector<Property> properties = PropertiesOf(publication_);
    if (const auto sent = client_.Withdraw(properties, deadline); !sent)
      return FailureOf(sent.error());
    const client::PropertyAddress address = properties.front().address();
    if (const auto answer = client_.Get({&address, 1}, deadline); !answer)
      return FailureOf(answer.error());
    return std::nullopt;
  }

  Client& client_;
  std::vector<Published> publication_;
  const std::chrono::milliseconds timeout_;
  Output& out_;
};

std::optional<Failure> RunPublish(const GlobalOptions& global, const PublishOptions& options,
                                  Output& out) {
  auto made = MakePublication(options);
  if (const Failure* failure = std::get_if<Failure>(&made)) return *failure;
  return WithClient(global, [&](Client& client, Deadline) {
    return Publishing(client, std::get<0>(std::move(made)), global.timeout, out).Run();
  });
}

}  // namespace

void AddPublishCommand(CLI::App& app, Invocation& invocation) {
  using enum Command::Need;
  const auto options = std::make_shared<PublishOptions>();
  Command publish(app, "publish", "Be a component that owns properties");
  publish.AddPositionals("NAME=VALUE", options->assignments,
                         "The properties and their first values", kRequired);
  publish.AddFlag("--hold", options->hold, "Stay, answer sets, withdraw at the end", kRequired);
  publish.AddText("--component", options->component, "The component of names that give none");
  publish.AddText("--component-guid", options->component_guid,
                  "Its GUID; otherwise made of its name");
  publish.AddText("--group", options->group, "The group of names that give none");
  publish.SetFooter(kAboutPublish);
  publish.SetRun(invocation, [options, &invocation](Output& out) {
    return RunPublish(invocation.global, *options, out);
  });
}

}  // namespace valmere::tools
