// A component in miniature: it makes its properties known, takes over each value that it is asked
// to, says so, and takes the properties back at the end. A set is printed when its new value has
// been reported, so that whoever waits for the line finds it.
#include <algorithm>
#include <string>
#include <vector>

#include "tools/commands.h"
#include "tools/name_resolver.h"

namespace valmere::tools {
namespace {

using client::Client;
using client::Deadline;
using client::Property;

std::vector<Property> PropertiesOf(const std::vector<Published>& publication) {
  std::vector<Property> properties;
  properties.reserve(publication.size());
  for (const Published& published : publication) {
    properties.push_back(published.property);
  }
  return properties;
}

// Publishes, and waits until the service has taken it all.
std::optional<Failure> Announce(Client& client, const std::vector<Published>& publication,
                                Deadline deadline) {
  const std::vector<Property> properties = PropertiesOf(publication);
  if (const auto sent = client.Publish(properties, deadline); !sent) return FailureOf(sent.error());
  const std::vector<client::PropertyAddress> addresses{properties.front().address()};
  const auto answer = client.Get(addresses, deadline);
  if (!answer) return FailureOf(answer.error());
  if (answer->empty() || !answer->front().found())
    return Failure{kExitRefused, "the service did not take " + FullName(properties.front())};
  std::string names;
  for (const Property& property : properties) {
    names += " " + FullName(property);
  }
  Complain("published" + names);
  return std::nullopt;
}

std::optional<Failure> Apply(Client& client, std::vector<Published>& publication,
                             const client::SetRequest& set, std::chrono::milliseconds timeout,
                             Output& out) {
  const auto target = std::find_if(
      publication.begin(), publication.end(),
      [&](const Published& published) { return published.property.address() == set.address; });
  if (target == publication.end()) return std::nullopt;
  target->property.value = set.value;
  const auto sent = client.Publish({&target->property, 1}, Deadline::After(timeout));
  if (!sent) return FailureOf(sent.error());
  out.Line(target->name + "=" + set.value);
  out.Flush();
  return std::nullopt;
}

// Answers sets until it is interrupted.
std::optional<Failure> Hold(Client& client, std::vector<Published>& publication,
                            std::chrono::milliseconds timeout, Output& out) {
  for (;;) {
    const auto sets = client.ReceiveSets(Deadline::Never());
    if (!sets && sets.error().kind == client::ErrorKind::kInterrupted) return std::nullopt;
    if (!sets) return FailureOf(sets.error());
    for (const client::SetRequest& set : *sets) {
      if (auto failure = Apply(client, publication, set, timeout, out)) return failure;
    }
  }
}

// A get behind it says that the service has handled the withdrawal.
std::optional<Failure> TakeBack(Client& client, const std::vector<Published>& publication,
                                Deadline deadline) {
  const std::vector<Property> properties = PropertiesOf(publication);
  if (const auto sent = client.Withdraw(properties, deadline); !sent)
    return FailureOf(sent.error());
  const client::PropertyAddress address = properties.front().address();
  if (const auto answer = client.Get({&address, 1}, deadline); !answer)
    return FailureOf(answer.error());
  return std::nullopt;
}

}  // namespace

std::optional<Failure> Publish(Client& client, std::vector<Published> publication,
                               std::chrono::milliseconds timeout, Output& out) {
  if (auto failure = Announce(client, publication, Deadline::After(timeout))) return failure;
  if (auto failure = Hold(client, publication, timeout, out)) return failure;
  return TakeBack(client, publication, Deadline::After(timeout));
}

}  // namespace valmere::tools
