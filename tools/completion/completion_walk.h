// Where the words of a command line lead in the command tree.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

namespace CLI {
class App;
class Option;
}  // namespace CLI

namespace valmere::tools {

// The options and positionals of a command, without those of the commands around it.
std::vector<const CLI::Option*> OptionsOf(const CLI::App& app);

bool TakesValue(const CLI::Option& option);

// Purpose: follows the words of a command line, good or not, as far as they can be understood.
// Owner: the code that completes the word behind them; the tree must stay.
// Threads: one.
// Errors: none; a word that nothing expects is taken for a positional.
class CommandWalk {
 public:
  explicit CommandWalk(const CLI::App& app) : app_(&app) {}

  void Take(const std::string& word);

  // The command that the words so far have named.
  const CLI::App& app() const { return *app_; }
  // The option whose value comes next, or null.
  const CLI::Option* awaiting() const { return awaiting_; }
  // "--" was among the words.
  bool only_positionals() const { return only_positionals_; }
  bool expects_command() const { return positionals_ == 0 && !only_positionals_; }
  // What "--socket" was given.
  const std::optional<std::string>& socket() const { return socket_; }

  // An option of the command or of one around it; null when there is none.
  const CLI::Option* Find(const std::string& name) const;
  // The positional that comes next; null when there is none. The last one may take many.
  const CLI::Option* NextPositional() const;

 private:
  void TakeOption(const std::string& word);
  void TakeValue(const CLI::Option& option, const std::string& value);
  const CLI::App* CommandNamed(const std::string& word) const;

  const CLI::App* app_;
  const CLI::Option* awaiting_ = nullptr;
  bool only_positionals_ = false;
  std::size_t positionals_ = 0;
  std::optional<std::string> socket_;
};

}  // namespace valmere::tools
