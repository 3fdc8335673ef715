// The service writes one line at a time, in order, and the line of a property that waits gives way
// to a later one. So when a request is handled at most one line is being written that is older, and
// the first rewrite that ends after it may be of that one; all that is written then is of the
// values that the request has left, or of later ones. A value that the file already held says
// nothing before that rewrite. Where others change a property faster than the file can be looked
// at, no value that it reports is ever met there: the second change of its line shows the same.
//
// Where the file is rewritten in place each rewrite tears it for a moment, and more of them may be
// on their way: there the end is waited for as well, though not for long in a flood.
//
// The file is looked at every few milliseconds: a watch on the folder would have to be renewed when
// the folder is replaced, tells nothing on network file systems, and the kernel allows few of them.
#include "tools/service/storing.h"

#include <algorithm>
#include <utility>

#include "client/service_properties.h"
#include "tools/names/name_resolver.h"
#include "tools/service/service_commands.h"

namespace valmere::tools {
namespace {

using client::Client;
using client::Deadline;
using client::Property;
using client::PropertyAddress;
using std::chrono::milliseconds;

constexpr milliseconds kShortestLookPause{1};
constexpr milliseconds kLongestLookPause{10};
constexpr milliseconds kLongestWaitForQuiet{500};
// Far more than it takes to write a line.
constexpr milliseconds kLineIsLate{250};
// For a file that is about to be replaced again: as many times it is brought to the disk.
constexpr int kMostSyncs = 3;
constexpr std::size_t kMostNamed = 10;

}  // namespace

std::optional<Failure> CheckIsStorable(const std::string& name, const std::string& value) {
  if (value.find('\n') == std::string::npos) return std::nullopt;
  return Failure{kExitBadValue,
                 name + ": a value with a line feed cannot be stored: \"" + value + "\""};
}

Storing::Storing(const ServiceClients& clients, Client& client, ServiceFile file, Deadline deadline)
    : clients_(clients), client_(client), file_(std::move(file)), deadline_(deadline) {}

// The file's version tells a rewrite only once it has some age. In a flood it never has; there the
// next version comes by itself.
std::optional<Failure> Storing::Begin(const std::vector<Property>& properties) {
  for (int tries = 0; tries < 5; ++tries) {
    if (tries > 0) {
      if (auto failure = Pause(2 * kLongestLookPause)) return failure;
    }
    auto look = file_.Look();
    if (Failure* failure = std::get_if<Failure>(&look)) return std::move(*failure);
    before_ = std::get<FileLook>(std::move(look));
    if (!before_.version || !before_.version->IsYoung()) break;
  }
  for (const Property& property : properties) {
    Wanted& wanted = wanted_.emplace_back();
    wanted.property = property;
    const auto held = before_.values.find(client::LineKey(property));
    if (held != before_.values.end()) wanted.stored = held->second;
  }
  return std::nullopt;
}

std::optional<Failure> Storing::Await() {
  const Deadline late = Deadline::After(kLineIsLate);
  milliseconds pause = kShortestLookPause;
  for (;;) {
    if (auto failure = Ask()) return failure;
    const auto start = Deadline::Clock::now();
    if (auto failure = LookAtFile()) return failure;
    if (wanted_.empty()) return Finish();
    if (deadline_.passed()) return TimeOut();
    if (late.passed() && !IsRewritten() && !requested_lines_) {
      if (auto failure = RequestLines()) return failure;
    }
    // A file of megabytes takes its time.
    const auto took = std::chrono::ceil<milliseconds>(Deadline::Clock::now() - start);
    if (auto failure = Pause(std::max(pause, took))) return failure;
    pause = std::min(2 * pause, kLongestLookPause);
  }
}

// What the properties have now.
std::optional<Failure> Storing::Ask() {
  std::vector<PropertyAddress> addresses;
  for (const Wanted& wanted : wanted_)
    addresses.push_back(wanted.property.address());
  const auto answer = client_.Get(addresses, deadline_);
  if (!answer && answer.error().kind == client::ErrorKind::kTimeout) return TimeOut();
  if (!answer) return FailureOf(answer.error());
  if (answer->size() != wanted_.size())
    return Failure{kExitRefused, "the service gave no answer to a get"};
  for (std::size_t i = 0; i < wanted_.size(); ++i) {
    const Property& now = (*answer)[i];
    const std::string name = FullName(wanted_[i].property);
    if (!now.found()) return Failure{kExitNoSuchProperty, name + " has gone: " + now.status};
    if (auto failure = CheckIsStorable(name, now.value)) return failure;
    wanted_[i].property.value = now.value;
    wanted_[i].reported.insert(now.value);
  }
  return std::nullopt;
}

std::optional<Failure> Storing::LookAtFile() {
  auto look = file_.Look();
  if (Failure* failure = std::get_if<Failure>(&look)) return std::move(*failure);
  look_ = std::get<FileLook>(std::move(look));
  if (!look_.sound || !IsRewritten()) return std::nullopt;
  for (Wanted& wanted : wanted_)
    Compare(wanted);
  std::erase_if(wanted_, [](const Wanted& wanted) {
    return wanted.stored && (wanted.reported.contains(*wanted.stored) || wanted.changes > 1);
  });
  return std::nullopt;
}

void Storing::Compare(Wanted& wanted) const {
  const auto held = look_.values.find(client::LineKey(wanted.property));
  if (held == look_.values.end() || wanted.stored == held->second) return;
  wanted.stored = held->second;
  ++wanted.changes;
}

// Where the file is replaced each time its number changes. One that is new tells nothing.
bool Storing::IsWrittenInPlace() const {
  return !before_.version || before_.version->number == look_.version->number;
}

std::optional<Failure> Storing::AwaitQuiet() {
  const Deadline enough = Deadline::After(kLongestWaitForQuiet);
  while (!enough.passed() && !deadline_.passed() && (!look_.sound || look_.version->IsYoung())) {
    if (auto failure = Pause(kLongestLookPause)) return failure;
    if (auto failure = LookAtFile()) return failure;
  }
  return std::nullopt;
}

// A file that has been replaced meanwhile holds what this one does, or what came later.
std::optional<Failure> Storing::Finish() {
  if (IsWrittenInPlace()) {
    if (auto failure = AwaitQuiet()) return failure;
  }
  for (int syncs = 1;; ++syncs) {
    if (auto failure = file_.Sync(look_)) return failure;
    if (syncs == kMostSyncs || file_.IsCurrent(look_)) return std::nullopt;
    auto look = file_.Look();
    if (Failure* failure = std::get_if<Failure>(&look)) return std::move(*failure);
    FileLook& newer = std::get<FileLook>(look);
    if (newer.sound) look_ = std::move(newer);
  }
}

std::optional<Failure> Storing::RequestLines() {
  requested_lines_ = true;
  return RequestStore(client_, deadline_);
}

std::optional<Failure> Storing::Pause(milliseconds time) {
  const Deadline until = Deadline::After(time).Or(deadline_);
  if (clients_.WaitUntil(until)) return std::nullopt;
  return Failure{kExitInterrupted, "interrupted"};
}

bool Storing::IsRewritten() const {
  return look_.version && look_.version != before_.version;
}

Failure Storing::TimeOut() const {
  std::string text = "time-out: " + file_.name();
  if (!look_.version)
    text += " is not there";
  else if (!IsRewritten())
    text += " has not been written since";
  else if (!look_.sound)
    text += " has no good CRC";
  text += "; the service's log says why. Not known to be on the disk:";
  for (std::size_t i = 0; i < std::min(wanted_.size(), kMostNamed); ++i) {
    const Property& property = wanted_[i].property;
    text += "\n  " + FullName(property) + "=" + property.value;
  }
  if (wanted_.size() > kMostNamed)
    text += "\n  and " + std::to_string(wanted_.size() - kMostNamed) + " more";
  return {kExitTimeout, text};
}

}  // namespace valmere::tools
