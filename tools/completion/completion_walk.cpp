#include "tools/completion/completion_walk.h"

#include <CLI/CLI.hpp>

namespace valmere::tools {
namespace {

constexpr char kSocketOption[] = "socket";

// Those of option groups too, which are nameless commands within a command.
void AddOptions(const CLI::App& app, std::vector<const CLI::Option*>& options) {
  for (const CLI::Option* option : app.get_options({}))
    options.push_back(option);
  for (const CLI::App* group : app.get_subcommands({}))
    if (group->get_name().empty()) AddOptions(*group, options);
}

}  // namespace

std::vector<const CLI::Option*> OptionsOf(const CLI::App& app) {
  std::vector<const CLI::Option*> options;
  AddOptions(app, options);
  return options;
}

bool TakesValue(const CLI::Option& option) {
  return option.get_items_expected_max() > 0;
}

void CommandWalk::Take(const std::string& word) {
  if (awaiting_ != nullptr) {
    TakeValue(*awaiting_, word);
    awaiting_ = nullptr;
  } else if (!only_positionals_ && word == "--") {
    only_positionals_ = true;
  } else if (!only_positionals_ && word.size() > 1 && word.starts_with('-')) {
    TakeOption(word);
  } else if (const CLI::App* command = CommandNamed(word)) {
    app_ = command;
  } else {
    ++positionals_;
  }
}

const CLI::Option* CommandWalk::Find(const std::string& name) const {
  for (const CLI::App* app = app_; app != nullptr; app = app->get_parent())
    if (const CLI::Option* option = app->get_option_no_throw(name)) return option;
  return nullptr;
}

const CLI::Option* CommandWalk::NextPositional() const {
  std::size_t before = 0;
  const CLI::Option* last = nullptr;
  for (const CLI::Option* option : OptionsOf(*app_)) {
    if (!option->get_positional()) continue;
    last = option;
    if (before++ == positionals_) return option;
  }
  return last != nullptr && last->get_items_expected_max() > 1 ? last : nullptr;
}

void CommandWalk::TakeOption(const std::string& word) {
  const std::size_t equals = word.find('=');
  const bool is_long = word.starts_with("--");
  // Of "-abc" only the last may have its value in the next word.
  const CLI::Option* option =
      Find(is_long ? word.substr(0, equals) : std::string("-") + word.back());
  if (option == nullptr || !TakesValue(*option)) return;
  if (is_long && equals != std::string::npos)
    TakeValue(*option, word.substr(equals + 1));
  else
    awaiting_ = option;
}

void CommandWalk::TakeValue(const CLI::Option& option, const std::string& value) {
  if (option.check_lname(kSocketOption)) socket_ = value;
}

const CLI::App* CommandWalk::CommandNamed(const std::string& word) const {
  if (!expects_command()) return nullptr;
  for (const CLI::App* command : app_->get_subcommands({}))
    if (!command->get_name().empty() && command->check_name(word)) return command;
  return nullptr;
}

}  // namespace valmere::tools
