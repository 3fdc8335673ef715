// How a command says what it takes. The parser behind it stays out of the commands' files: its
// header is most of what each of them would have to compile.
#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "tools/service/invocation.h"

namespace CLI {
class App;
class Option;
}  // namespace CLI

namespace valmere::tools {

// An option for a time in seconds, fractions allowed.
CLI::Option* AddSeconds(CLI::App& app, const char* name, const char* about,
                        std::function<void(std::chrono::milliseconds)> take);

// Purpose: describes one command of a command line. Labels and texts stand in its help; a variable
// that is named here gets the value, and must live until the command line has been parsed. What a
// text variable holds already is shown as the default.
// Owner: the function that adds the command; the command itself is the command line's.
// Threads: one.
// Errors: std::logic_error when two options have one name.
class Command {
 public:
  enum class Need { kOptional, kRequired };
  using Run = std::function<std::optional<Failure>(Output&)>;

  // A command of `parent`.
  Command(CLI::App& parent, const char* name, const char* about);

  // A command of this one, which then does nothing by itself.
  Command AddCommand(const char* name, const char* about);

  void AddPositional(const char* label, std::string& value, const char* about, Need need);
  void AddPositionals(const char* label, std::vector<std::string>& values, const char* about,
                      Need need);
  void AddFlag(const char* name, bool& flag, const char* about, Need need = Need::kOptional);
  // An option that takes a text.
  void AddText(const char* name, std::string& value, const char* about);
  // One whose absence means something.
  void AddText(const char* name, const char* label, std::optional<std::string>& value,
               const char* about);
  // "--count", for a number of at least one. Zero, which can't be given, is no default.
  void AddCount(std::size_t& count, const char* about);
  void AddSeconds(const char* name, std::optional<std::chrono::milliseconds>& time,
                  const char* about);

  // What the help says at its end.
  void SetFooter(const char* text);
  // What `invocation` is to run when the command line names this command.
  void SetRun(Invocation& invocation, Run run);

 private:
  CLI::App* app_;
};

}  // namespace valmere::tools
