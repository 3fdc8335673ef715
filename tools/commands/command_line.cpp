// What holds for all commands may stand before or after a command's name.
#include "tools/commands/command_line.h"

#include <CLI/CLI.hpp>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <exception>
#include <map>
#include <optional>
#include <sstream>
#include <string_view>
#include <utility>

#include "client/socket_path.h"
#include "tools/commands/command.h"
#include "tools/commands/commands.h"
#include "tools/completion/completion.h"
#include "tools/interactive/interactive.h"
#include "tools/output/property_format.h"

namespace valmere::tools {
namespace {

constexpr const char* kAbout =
    "Reads, sets and publishes the properties of the printer's components.";

constexpr const char* kAfterHelp = R"(
A NAME is a property's name, group/name or component/group/name; GUIDs may
stand for each. A PATTERN is a NAME, or one with *, ? and [...] in it.

In the TEXT of --format %c, %g and %n stand for the names of the component, the
group and the property, %C, %G and %N for their GUIDs, %v for the value, %t for
the status; %%, \n, \t, \0 and \\ for one character each.

The socket is $VALMERE_SOCKET, else $XDG_RUNTIME_DIR/valmere/PRN1, else
/run/valmere/PRN1.

Exit status: 0 ok, 1 refused, 2 usage, 3 cannot connect, 4 no such property,
5 bad or read-only value, 6 time-out, 7 connection lost, 130 interrupted.)";

void AddOutputOptions(CLI::App& app, GlobalOptions& global) {
  static const std::map<std::string, ColorChoice> kChoices{{"auto", ColorChoice::kAuto},
                                                           {"always", ColorChoice::kAlways},
                                                           {"never", ColorChoice::kNever}};
  app.add_option_function<std::string>(
         "--color", [&global](const std::string& choice) { global.color = kChoices.at(choice); },
         "When to use colour")
      ->type_name("auto|always|never")
      ->take_last()
      ->check(CLI::IsMember({"auto", "always", "never"}).description(""))
      ->default_str("auto");
  app.add_flag_callback(
      "--json", [&global] { global.form = OutputForm::kJson; }, "Print JSON");
  app.add_option_function<std::string>(
         "--format",
         [&global](const std::string& format) {
           if (global.form == OutputForm::kJson)
             throw CLI::ValidationError("--json and --format exclude each other");
           global.form = OutputForm::kFormat;
           global.format = format;
         },
         "Print each property so; see below")
      ->type_name("TEXT")
      ->take_last()
      ->check(CLI::Validator(
          [](const std::string& format) { return CheckFormat(format).value_or(""); }, ""));
  app.add_flag("-0,--null", global.null_ends, "End each line of properties with NUL");
}

// A digit behind a dash is a number to the parser, unless the command itself has such an option.
void AddNullOption(CLI::App& app, GlobalOptions& global) {
  for (const char* name : {"list", "get", "watch", "publish", "import"})
    app.get_subcommand(name)->add_flag("-0", global.null_ends, "End each line with NUL");
}

// A command's help lists its own options alone.
void NameCommonOptions(CLI::App& app) {
  for (CLI::App* command : app.get_subcommands({})) {
    command->footer(command->get_footer() +
                    "\n\nEvery command takes --socket, --timeout, --color, --json, --format and -0 "
                    "too:\nsee valmere --help.");
    NameCommonOptions(*command);
  }
}

int UsageError(const char* text) {
  std::fprintf(stderr, "valmere: %s\nvalmere: see valmere --help\n", text);
  return kExitUsage;
}

// The parser would take a word in brackets for a list, and split it; "++" for the end of a command;
// and for an empty "--option=" the next word. A mark before it hides that until the word has been
// handed to its option.
constexpr char kMark = '\x01';

int ReportUsage(const CLI::App& app, const CLI::ParseError& error) {
  std::ostringstream out;
  std::ostringstream problem;
  const int code = app.exit(error, out, problem);
  if (code == 0) {
    Output help(stdout, GlobalOptions{});
    help.Raw(out.str());
    return Conclude(std::nullopt, help);
  }
  std::string text = error.what();
  std::erase(text, kMark);
  return UsageError(text.c_str());
}

bool NeedsMark(std::string_view value) {
  return value == "++" || value.starts_with(kMark) ||
         (value.starts_with('[') && value.ends_with(']'));
}

void HideFromParser(std::vector<std::string>& words) {
  bool options_may_follow = true;
  for (std::string& word : words) {
    std::size_t value = 0;
    if (options_may_follow && word.starts_with("--")) value = word.find('=') + 1;
    const bool attached = value > 0;
    if (NeedsMark(std::string_view(word).substr(value)) || (attached && value == word.size()))
      word.insert(value, 1, kMark);
    if (word == "--") options_may_follow = false;
  }
}

void TakeMarksOff(CLI::App& app) {
  for (CLI::Option* option : app.get_options()) {
    if (option->get_items_expected_max() == 0) continue;  // a flag
    option->transform(CLI::Validator(
        [](std::string& word) {
          if (word.starts_with(kMark)) word.erase(0, 1);
          return std::string();
        },
        ""));
  }
  for (CLI::App* command : app.get_subcommands({}))
    TakeMarksOff(*command);
}

// The exit code when the program is not to go on: after "--help", or on an error, which has been
// reported.
std::optional<int> Parse(CLI::App& app, std::vector<std::string> words) {
  TakeMarksOff(app);
  HideFromParser(words);
  std::reverse(words.begin(), words.end());  // as CLI::App takes them
  try {
    app.parse(words);
  } catch (const CLI::ParseError& error) {
    return ReportUsage(app, error);
  }
  return std::nullopt;
}

int Run(const Invocation& invocation) {
  Output out(stdout, invocation.global);
  try {
    return Conclude(invocation.run(out), out);
  } catch (const std::exception& error) {
    return Conclude(Failure{kExitRefused, error.what()}, out);
  }
}

}  // namespace

void BuildCommandLine(CLI::App& app, Invocation& invocation) {
  GlobalOptions& global = invocation.global;
  global.socket = client::DefaultSocketPath();
  app.name("valmere");
  app.description(kAbout);
  app.set_version_flag("--version", "valmere " VALMERE_VERSION);
  app.footer(kAfterHelp);
  app.fallthrough();
  app.require_subcommand(0, 1);  // demanding one would hide which word is no command
  app.add_option("--socket", global.socket, "The service's socket")
      ->type_name("PATH")
      ->take_last()
      ->capture_default_str();
  AddSeconds(app, "--timeout", "For connecting and answering", [&global](auto time) {
    global.timeout = time;
  })->default_str("5");
  AddOutputOptions(app, global);
  AddListCommand(app, invocation);
  AddGetCommand(app, invocation);
  AddSetCommand(app, invocation);
  AddWatchCommand(app, invocation);
  AddWaitCommand(app, invocation);
  AddPublishCommand(app, invocation);
  AddInfoCommand(app, invocation);
  AddMonitorCommand(app, invocation);
  AddPingCommand(app, invocation);
  AddStoreCommand(app, invocation);
  AddLoadCommand(app, invocation);
  AddExportCommand(app, invocation);
  AddImportCommand(app, invocation);
  AddPropfileCommand(app, invocation);
  AddFrameCommand(app, invocation);
  AddNullOption(app, global);
  NameCommonOptions(app);
}

int Start(const std::vector<std::string>& words) {
  CLI::App app;
  Invocation invocation;
  BuildCommandLine(app, invocation);
  if (AnswerCompletion(app, words)) return kExitOk;
  if (const std::optional<int> refused = Parse(app, words)) return *refused;
  if (invocation.run) return Run(invocation);
  if (isatty(STDIN_FILENO) == 0 || isatty(STDOUT_FILENO) == 0)
    return UsageError("a command is required");
  // What was given here holds for each line.
  const auto run_line = [&](std::vector<std::string> line) {
    line.insert(line.begin(), words.begin(), words.end());
    return RunCommandLine(std::move(line));
  };
  Output out(stdout, invocation.global);
  return Conclude(RunInteractive(invocation.global, app, run_line), out);
}

int RunCommandLine(std::vector<std::string> words) {
  CLI::App app;
  Invocation invocation;
  BuildCommandLine(app, invocation);
  if (const std::optional<int> refused = Parse(app, std::move(words))) return *refused;
  return invocation.run ? Run(invocation) : UsageError("a command is required");
}

int Conclude(const std::optional<Failure>& failure, Output& out) {
  out.Flush();
  if (out.closed()) return kExitOk;
  if (failure) {
    Report(failure->text);
    return failure->code;
  }
  if (!out.failed()) return kExitOk;
  Report("cannot write to standard output");
  return kExitRefused;
}

}  // namespace valmere::tools
