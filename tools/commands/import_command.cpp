// Sets what differs, and waits until the properties report it. Nothing is set before the whole
// input has been understood. The service tells of its own properties at once whether they took a
// value; one that can't be set does not, and that is no failure: an export has all of them.
#include <map>
#include <memory>
#include <sstream>
#include <variant>

#include "client/service_properties.h"
#include "tools/commands/command.h"
#include "tools/commands/commands.h"
#include "tools/names/address_order.h"
#include "tools/names/name_resolver.h"
#include "tools/output/property_json.h"
#include "tools/output/property_output.h"
#include "tools/process/input.h"
#include "tools/service/observation.h"
#include "tools/service/service_clients.h"

namespace valmere::tools {
namespace {

using client::Client;
using client::Deadline;
using client::ErrorKind;
using client::Property;
using client::PropertyAddress;

constexpr const char* kAboutImport = R"(
Reads what export prints, and asks the owners of the properties that have other
values for these. Prints each property that took its value. A property that is
not there makes the exit status 4, one whose owner did not take its value in
time 6, after all others were set. The service's own properties that can't be
set are mentioned and left alone.)";

struct ImportOptions {
  std::string file = "-";
  bool dry_run = false;
};

std::variant<std::vector<Property>, Failure> ReadLines(const std::string& file) {
  auto text = ReadInput(file);
  if (const Failure* failure = std::get_if<Failure>(&text)) return *failure;
  std::istringstream input(std::get<std::string>(std::move(text)));
  std::vector<Property> properties;
  std::string line;
  for (std::size_t number = 1; std::getline(input, line); ++number) {
    if (line.empty()) continue;
    auto property = FromExport(Json::parse(line, nullptr, false));
    if (!property)
      return Failure{kExitUsage, "line " + std::to_string(number) + " is no exported property"};
    properties.push_back(std::move(*property));
  }
  return properties;
}

class Import {
 public:
  Import(const GlobalOptions& global, const ImportOptions& options, Output& out)
      : options_(options),
        out_(out),
        clients_(global.socket),
        deadline_(Deadline::After(global.timeout)) {}

  std::optional<Failure> Run(const std::vector<Property>& imported);

 private:
  void Compare(const std::vector<Property>& imported, const std::vector<Property>& present);
  std::optional<Failure> SetAll();
  client::Result<std::vector<Property>> Ask();
  bool See(const Property& seen);
  std::optional<Failure> Conclude();

  const ImportOptions& options_;
  Output& out_;
  ServiceClients clients_;
  const Deadline deadline_;
  Client* requester_ = nullptr;
  // Not reported yet; the properties have the values that are wanted.
  std::map<PropertyAddress, Property, AddressOrder> wanted_;
  std::size_t missing_ = 0;
};

std::optional<Failure> Import::Run(const std::vector<Property>& imported) {
  const auto requester = clients_.Open(deadline_);
  if (!requester) return FailureOf(requester.error());
  requester_ = *requester;
  const auto present = requester_->GetAll(deadline_);
  if (!present) return FailureOf(present.error());
  Compare(imported, *present);
  if (options_.dry_run) {
    for (const auto& [address, property] : wanted_)
      PrintProperty(property, TextForm::kAssignment, out_);
  } else if (!wanted_.empty()) {
    if (auto failure = SetAll()) return failure;
  }
  return Conclude();
}

void Import::Compare(const std::vector<Property>& imported, const std::vector<Property>& present) {
  std::map<PropertyAddress, const Property*, AddressOrder> by_address;
  for (const Property& property : present)
    by_address.emplace(property.address(), &property);
  for (const Property& property : imported) {
    const auto found = by_address.find(property.address());
    wanted_.erase(property.address());  // of two lines for one property the later one counts
    if (found == by_address.end()) {
      ++missing_;
      Report("no property " + FullName(property));
    } else if (found->second->value != property.value) {
      Property& wanted = wanted_[property.address()];
      wanted = *found->second;
      wanted.value = property.value;
    }
  }
}

std::optional<Failure> Import::SetAll() {
  const auto subscriber = clients_.Open(deadline_);
  if (!subscriber) return FailureOf(subscriber.error());
  if (const auto done = (*subscriber)->SubscribeAll(deadline_); !done)
    return FailureOf(done.error());
  for (const auto& [address, property] : wanted_) {
    const client::SetRequest request{address, property.value};
    const auto sent = requester_->Set({&request, 1}, deadline_);
    if (!sent) return FailureOf(sent.error());
  }
  const auto done = Observe([&] { return Ask(); }, **subscriber,
                            [&](const Property& seen) { return See(seen); }, deadline_);
  if (!done && done.error().kind != ErrorKind::kTimeout) return FailureOf(done.error());
  return std::nullopt;
}

// The service's own properties are what they will be when the first answer comes.
client::Result<std::vector<Property>> Import::Ask() {
  std::vector<PropertyAddress> addresses;
  for (const auto& [address, property] : wanted_)
    addresses.push_back(address);
  auto answer = requester_->Get(addresses, deadline_);
  if (!answer) return answer;
  for (const Property& seen : *answer) {
    See(seen);
    if (seen.component != client::kServiceComponent || wanted_.erase(seen.address()) == 0) continue;
    Report(FullName(seen) + " is still \"" + seen.value + "\"");
  }
  return answer;
}

// True when nothing more is wanted. A property that took its value is printed.
bool Import::See(const Property& seen) {
  const auto place = wanted_.find(seen.address());
  if (place != wanted_.end() && place->second.value == seen.value) {
    PrintProperty(seen, TextForm::kAssignment, out_);
    wanted_.erase(place);
  }
  return wanted_.empty();
}

std::optional<Failure> Import::Conclude() {
  if (!options_.dry_run && !wanted_.empty()) {
    std::string text = "time-out: these did not take their values";
    for (const auto& [address, property] : wanted_)
      text += "\n  " + FullName(property);
    return Failure{kExitTimeout, text};
  }
  if (missing_ > 0)
    return Failure{kExitNoSuchProperty,
                   std::to_string(missing_) + " of the properties are not there"};
  return std::nullopt;
}

}  // namespace

void AddImportCommand(CLI::App& app, Invocation& invocation) {
  const auto options = std::make_shared<ImportOptions>();
  Command command(app, "import", "Set properties to the values of an export");
  command.AddPositional("FILE", options->file, "The export; - reads standard input",
                        Command::Need::kOptional);
  command.AddFlag("--dry-run", options->dry_run, "Only print what would be set");
  command.SetFooter(kAboutImport);
  command.SetRun(invocation, [options, &invocation](Output& out) -> std::optional<Failure> {
    const auto imported = ReadLines(options->file);
    if (const Failure* failure = std::get_if<Failure>(&imported)) return *failure;
    return Import(invocation.global, *options, out).Run(std::get<0>(imported));
  });
}

}  // namespace valmere::tools
