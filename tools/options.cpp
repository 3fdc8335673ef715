// One subcommand for each thing to do; what holds for all of them may stand before or after its
// name.
#include "tools/options.h"

#include <CLI/CLI.hpp>
#include <cstdio>
#include <sstream>

#include "client/socket_path.h"
#include "tools/exit_code.h"

namespace valmere::tools {
namespace {

constexpr double kLongestTimeout = 1e6;  // seconds

constexpr const char* kAfterHelp = R"(
A NAME is a property's name, group/name or component/group/name; GUIDs may stand for each.
The socket is $VALMERE_SOCKET, else $XDG_RUNTIME_DIR/valmere/PRN1, else /run/valmere/PRN1.

Exit status: 0 ok, 1 refused, 2 usage, 3 cannot connect, 4 no such property, 5 bad or read-only
value, 6 time-out, 7 connection lost, 130 interrupted.)";

constexpr const char* kAboutPublish = R"(
A NAME is [component/][group/]name. The properties last as long as the command runs: it prints each
set that it receives as NAME=VALUE and takes the value over, until SIGINT or SIGTERM ends it.
GUIDs are made of the names, so that they are the same each time.)";

void AddGet(CLI::App& app, Options& options) {
  CLI::App* get = app.add_subcommand("get", "Print the values of properties, one a line");
  get->add_option("NAME", options.names, "The properties")->required();
  get->callback([&options] { options.command = Options::Command::kGet; });
}

void AddWatch(CLI::App& app, Options& options) {
  CLI::App* watch = app.add_subcommand("watch", "Print each change of any property as it is told");
  watch->add_option("--count", options.count, "End after so many lines")
      ->type_name("N")
      ->check(CLI::PositiveNumber);
  watch->callback([&options] { options.command = Options::Command::kWatch; });
}

void AddSet(CLI::App& app, Options& options) {
  CLI::App* set = app.add_subcommand("set", "Ask a property's owner for a new value");
  set->add_option("NAME", options.name, "The property")->required();
  set->add_option("VALUE", options.value, "Its new value")->required();
  set->callback([&options] { options.command = Options::Command::kSet; });
}

void AddPublish(CLI::App& app, Options& options) {
  CLI::App* publish = app.add_subcommand("publish", "Be a component that owns properties");
  publish->add_option("NAME=VALUE", options.assignments, "The properties and their first values")
      ->required();
  publish
      ->add_flag("--hold", options.hold, "Stay, answer sets, take the properties back at the end")
      ->required();
  publish->add_option("--component", options.component, "The component of names that give none")
      ->capture_default_str();
  publish->add_option("--component-guid", options.component_guid,
                      "Its GUID, instead of the one made of its name");
  publish->add_option("--group", options.group, "The group of names that give none")
      ->capture_default_str();
  publish->footer(kAboutPublish);
  publish->callback([&options] { options.command = Options::Command::kPublish; });
}

int ComplainUsage(const char* text) {
  std::fprintf(stderr, "valmere: %s\nvalmere: see valmere --help\n", text);
  return kExitUsage;
}

int ReportUsage(const CLI::App& app, const CLI::ParseError& error) {
  std::ostringstream out;
  std::ostringstream problem;
  const int code = app.exit(error, out, problem);
  std::fputs(out.str().c_str(), stdout);
  return code == 0 ? kExitOk : ComplainUsage(error.what());
}

}  // namespace

std::optional<Options> ReadOptions(int argc, const char* const* argv, int& exit_code) {
  Options options;
  options.socket = client::DefaultSocketPath();
  double seconds = 5;
  CLI::App app("Reads, sets and publishes the properties of the printer's components.", "valmere");
  app.set_version_flag("--version", "valmere " VALMERE_VERSION);
  app.footer(kAfterHelp);
  app.fallthrough();
  app.require_subcommand(0, 1);  // demanding one would hide which word is no command
  app.add_option("--socket", options.socket, "The service's socket")
      ->type_name("PATH")
      ->take_last()
      ->capture_default_str();
  app.add_option("--timeout", seconds, "Seconds for connecting and answering")
      ->type_name("S")
      ->take_last()
      ->check(CLI::Range(0.0, kLongestTimeout))
      ->capture_default_str();
  app.add_subcommand("list", "Print every property as component/group/name=value");
  AddGet(app, options);
  AddSet(app, options);
  AddPublish(app, options);
  AddWatch(app, options);
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    exit_code = ReportUsage(app, error);
    return std::nullopt;
  }
  if (app.get_subcommands().empty()) {
    exit_code = ComplainUsage("a command is required");
    return std::nullopt;
  }
  options.timeout = std::chrono::milliseconds(static_cast<long long>(seconds * 1000));
  return options;
}

}  // namespace valmere::tools
