// Lines typed on a terminal.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace valmere::tools {

// Gives what may stand for the last of the words, as Candidates does.
using WordCompleter = std::function<std::vector<std::string>(const std::vector<std::string>&)>;

// Purpose: lets the user edit a line on standard input, with history and completion by Tab.
// Owner: RunInteractive; one at a time in the process.
// Threads: one.
// Errors: std::runtime_error when the terminal can't be used.
class LineEditor {
 public:
  enum class Outcome { kLine, kInterrupted, kEnd };

  explicit LineEditor(WordCompleter completer);
  ~LineEditor();
  LineEditor(const LineEditor&) = delete;
  LineEditor& operator=(const LineEditor&) = delete;

  // Reads a line, without its line feed. Meanwhile SIGINT gives kInterrupted, SIGTERM and SIGHUP
  // kEnd; at all other times SIGINT only breaks off a call that waits.
  Outcome Read(std::string& line);
  // Makes a line one that the user can go back to.
  void Remember(const std::string& line);

 private:
  struct Parts;
  const std::unique_ptr<Parts> parts_;
};

}  // namespace valmere::tools
