// What is offered for a word hangs on where the words before it have led in the command tree, and
// on the label that an option or a positional has there; so nothing is listed twice.
#include "tools/completion/completion.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <sstream>
#include <string_view>
#include <utility>

#include "tools/completion/completion_names.h"
#include "tools/completion/completion_walk.h"

namespace valmere::tools {
namespace {

// Hidden ones have no group.
template <typename Item>
bool IsVisible(const Item& item) {
  return !item.get_group().empty();
}

// A user's "~/" is the home folder; the candidate keeps what was typed.
std::string Unfolded(const std::string& path) {
  const char* home = std::getenv("HOME");
  return home != nullptr && path.starts_with("~/") ? home + path.substr(1) : path;
}

std::vector<std::string> FileCandidates(const std::string& typed) {
  const std::size_t slash = typed.rfind('/');
  const std::string folder = slash == std::string::npos ? "" : typed.substr(0, slash + 1);
  const std::string beginning = typed.substr(folder.size());
  std::vector<std::string> candidates;
  std::error_code error;
  std::filesystem::directory_iterator entry(folder.empty() ? "." : Unfolded(folder), error);
  for (; !error && entry != std::filesystem::directory_iterator(); entry.increment(error)) {
    const std::string name = entry->path().filename().string();
    if (!name.starts_with(beginning) || (name.starts_with('.') && beginning.empty())) continue;
    std::error_code unknown;
    candidates.push_back(folder + name + (entry->is_directory(unknown) ? "/" : ""));
  }
  return candidates;
}

// The words of capitals and "-" in an option's label.
std::vector<std::string> LabelWords(const std::string& label) {
  std::vector<std::string> words(1);
  for (const char character : label) {
    const bool belongs = (character >= 'A' && character <= 'Z') || character == '-';
    if (belongs)
      words.back() += character;
    else if (!words.back().empty())
      words.emplace_back();
  }
  return words;
}

bool Names(const std::vector<std::string>& words, std::initializer_list<const char*> wanted) {
  return std::find_first_of(words.begin(), words.end(), wanted.begin(), wanted.end()) !=
         words.end();
}

// A value that is one of a few is labelled "a|b|c".
std::vector<std::string> ChoicesIn(const std::string& label) {
  if (label.find('|') == std::string::npos) return {};
  std::vector<std::string> choices;
  std::istringstream words(label);
  for (std::string word; std::getline(words, word, '|');)
    choices.push_back(word);
  return choices;
}

// What may be a value of the option that begins with `typed`, and perhaps more.
std::vector<std::string> ValueCandidates(const CLI::Option& option, const std::string& typed,
                                         const std::string& socket, const PropertySource& source) {
  // The check of a value adds to its type's name, behind a colon.
  const std::string type = option.get_type_name();
  const std::string label =
      option.get_positional() ? option.get_name(true) : type.substr(0, type.find(':'));
  if (std::vector<std::string> choices = ChoicesIn(label); !choices.empty()) return choices;
  const std::vector<std::string> words = LabelWords(label);
  // A publish of NAME=VALUE makes a new property, so there is none to complete it with.
  const bool is_new = label.find("NAME=VALUE") != std::string::npos;
  if (Names(words, {"NAME", "PATTERN"}) && !is_new) return NameCandidates(typed, source(socket));
  if (Names(words, {"FILE", "PATH"})) return FileCandidates(typed);
  return {};
}

std::vector<std::string> OptionCandidates(const CLI::App& command) {
  std::vector<std::string> candidates;
  for (const CLI::App* app = &command; app != nullptr; app = app->get_parent()) {
    for (const CLI::Option* option : OptionsOf(*app)) {
      if (!IsVisible(*option)) continue;
      for (const std::string& name : option->get_lnames())
        candidates.push_back("--" + name);
      for (const std::string& name : option->get_snames())
        candidates.push_back("-" + name);
    }
  }
  return candidates;
}

std::vector<std::string> CommandCandidates(const CLI::App& app) {
  std::vector<std::string> candidates;
  for (const CLI::App* command : app.get_subcommands({}))
    if (IsVisible(*command) && !command->get_name().empty())
      candidates.push_back(command->get_name());
  return candidates;
}

// Those that begin with `typed`, each once and in order.
std::vector<std::string> Fitting(std::vector<std::string> candidates, std::string_view typed) {
  std::erase_if(candidates, [&](const std::string& text) { return !text.starts_with(typed); });
  std::sort(candidates.begin(), candidates.end());
  candidates.erase(std::unique(candidates.begin(), candidates.end()), candidates.end());
  return candidates;
}

// Of "--option=" and the beginning of a value.
std::vector<std::string> AttachedCandidates(const CommandWalk& walk, const std::string& typed,
                                            const std::string& socket,
                                            const PropertySource& source) {
  const std::size_t value_start = typed.find('=') + 1;
  const CLI::Option* option = walk.Find(typed.substr(0, value_start - 1));
  if (option == nullptr || !TakesValue(*option)) return {};
  std::vector<std::string> candidates =
      ValueCandidates(*option, typed.substr(value_start), socket, source);
  for (std::string& candidate : candidates)
    candidate.insert(0, typed, 0, value_start);
  return candidates;
}

std::vector<std::string> PositionalCandidates(const CommandWalk& walk, const std::string& typed,
                                              const std::string& socket,
                                              const PropertySource& source) {
  const CLI::Option* positional = walk.NextPositional();
  if (positional == nullptr) return {};
  std::vector<std::string> candidates = ValueCandidates(*positional, typed, socket, source);
  // They would be taken for options.
  if (!walk.only_positionals())
    std::erase_if(candidates, [](const std::string& text) { return text.starts_with('-'); });
  return candidates;
}

std::vector<std::string> AllCandidates(const CommandWalk& walk, const std::string& typed,
                                       const std::string& socket, const PropertySource& source) {
  if (walk.awaiting() != nullptr) return ValueCandidates(*walk.awaiting(), typed, socket, source);
  if (!walk.only_positionals() && typed.starts_with("--") && typed.find('=') != std::string::npos)
    return AttachedCandidates(walk, typed, socket, source);
  if (!walk.only_positionals() && typed.starts_with('-')) return OptionCandidates(walk.app());
  std::vector<std::string> candidates = PositionalCandidates(walk, typed, socket, source);
  if (walk.expects_command()) {
    const std::vector<std::string> commands = CommandCandidates(walk.app());
    candidates.insert(candidates.end(), commands.begin(), commands.end());
  }
  return candidates;
}

}  // namespace

std::vector<std::string> Candidates(const CLI::App& app, std::span<const std::string> words,
                                    const std::string& socket, const PropertySource& source) {
  if (words.empty()) return {};
  CommandWalk walk(app);
  for (const std::string& word : words.first(words.size() - 1))
    walk.Take(word);
  const std::string& typed = words.back();
  return Fitting(AllCandidates(walk, typed, walk.socket().value_or(socket), source), typed);
}

}  // namespace valmere::tools
