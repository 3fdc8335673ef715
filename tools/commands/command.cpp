// The limits of numbers and the words that go with them stand here once.
#include "tools/commands/command.h"

#include <CLI/CLI.hpp>

#include <string>
#include <utility>

namespace valmere::tools {
namespace {

constexpr double kLongestTime = 1e6;  // seconds
constexpr std::size_t kHighestCount = 1'000'000'000;

// What is wrong with a time, if anything. No number at all is neither too small nor too great.
std::string CheckTime(const std::string& text) {
  double seconds = 0;
  if (CLI::detail::lexical_cast(text, seconds) && seconds >= 0 && seconds <= kLongestTime)
    return "";
  return "\"" + text + "\" is no time of 0 to 1000000 seconds";
}

}  // namespace

CLI::Option* AddSeconds(CLI::App& app, const char* name, const char* about,
                        std::function<void(std::chrono::milliseconds)> take) {
  return app
      .add_option_function<double>(
          name,
          [take = std::move(take)](double seconds) {
            take(std::chrono::milliseconds(static_cast<long long>(seconds * 1000)));
          },
          about)
      ->type_name("SECONDS")
      ->take_last()
      ->check(CLI::Validator([](const std::string& text) { return CheckTime(text); }, ""));
}

Command::Command(CLI::App& parent, const char* name, const char* about)
    : app_(parent.add_subcommand(name, about)) {}

Command Command::AddCommand(const char* name, const char* about) {
  app_->require_subcommand(1);
  return {*app_, name, about};
}

void Command::AddPositional(const char* label, std::string& value, const char* about, Need need) {
  app_->add_option(label, value, about)->required(need == Need::kRequired)->capture_default_str();
}

void Command::AddPositionals(const char* label, std::vector<std::string>& values, const char* about,
                             Need need) {
  app_->add_option(label, values, about)->required(need == Need::kRequired);
}

void Command::AddFlag(const char* name, bool& flag, const char* about, Need need) {
  app_->add_flag(name, flag, about)->required(need == Need::kRequired);
}

void Command::AddText(const char* name, std::string& value, const char* about) {
  app_->add_option(name, value, about)->capture_default_str();
}

void Command::AddText(const char* name, const char* label, std::optional<std::string>& value,
                      const char* about) {
  app_->add_option(name, value, about)->type_name(label);
}

void Command::AddCount(std::size_t& count, const char* about) {
  CLI::Option* option = app_->add_option("--count", count, about);
  option->type_name("N")->check(CLI::Range(std::size_t{1}, kHighestCount).description(""));
  if (count > 0) option->capture_default_str();
}

void Command::AddSeconds(const char* name, std::optional<std::chrono::milliseconds>& time,
                         const char* about) {
  tools::AddSeconds(*app_, name, about, [&time](std::chrono::milliseconds given) { time = given; });
}

void Command::SetFooter(const char* text) {
  app_->footer(text);
}

void Command::SetRun(Invocation& invocation, Run run) {
  app_->callback([&invocation, run = std::move(run)] { invocation.run = run; });
}

}  // namespace valmere::tools
