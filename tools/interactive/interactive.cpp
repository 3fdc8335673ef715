// A line is a command line as a shell would hand it over, run through the same command tree; only
// "help", "exit" and "quit" are known here alone.
#include "tools/interactive/interactive.h"

#include <langinfo.h>

#include <algorithm>
#include <clocale>
#include <cstdio>
#include <exception>
#include <span>
#include <string_view>

#include "tools/completion/completion.h"
#include "tools/completion/completion_words.h"
#include "tools/interactive/history_file.h"
#include "tools/interactive/line_editor.h"

namespace valmere::tools {
namespace {

constexpr const char* kOwnCommands[] = {"exit", "help", "quit"};
constexpr const char* kAboutLines = R"(
Here, each line is such a command, without "valmere"; words are quoted as in a shell.
  help [COMMAND]              This text, or what a command does
  exit, quit, Ctrl-D          End
Tab completes, Ctrl-R searches the history, Ctrl-C drops the line or ends the command that runs.
)";

std::vector<std::string> CompleteLine(const GlobalOptions& global, const CLI::App& app,
                                      std::span<const std::string> words) {
  // "help set" completes as "set" does.
  const bool after_help = words.size() > 1 && words.front() == "help";
  if (after_help) words = words.subspan(1);
  std::vector<std::string> candidates = Candidates(app, words, global.socket, LiveProperties);
  if (words.size() != 1 || after_help) return candidates;
  for (const char* command : kOwnCommands)
    if (std::string_view(command).starts_with(words.front())) candidates.emplace_back(command);
  std::sort(candidates.begin(), candidates.end());
  return candidates;
}

void RunWords(std::vector<std::string> words, const RunLine& run_line) {
  // Lines are copied from manuals.
  if (words.front() == "valmere") words.erase(words.begin());
  const bool is_help = !words.empty() && words.front() == "help";
  if (is_help) {
    words.erase(words.begin());
    words.emplace_back("--help");
  }
  if (words.empty()) return;
  try {
    run_line(words);
  } catch (const std::exception& error) {
    Report(error.what());
  }
  if (is_help && words.size() == 1) std::fputs(kAboutLines, stdout);
  std::fflush(stdout);
  // A command may have read standard input to its end, or found the terminal gone for a moment.
  std::clearerr(stdin);
  std::clearerr(stdout);
}

// False when the line was the last.
bool HandleLine(SplitLine split, const RunLine& run_line) {
  if (split.words.empty()) return true;
  if (split.open != '\0') {
    Report(std::string("the line ends within ") + split.open);
    return true;
  }
  if (split.words.front() == "exit" || split.words.front() == "quit") return false;
  RunWords(std::move(split.words), run_line);
  return true;
}

// Purpose: remembers lines, here and for the next time.
// Owner: RunInteractive.
class Memory {
 public:
  explicit Memory(LineEditor& editor) : editor_(editor) {
    for (const std::string& line : file_.Load())
      editor_.Remember(line);
  }

  // As in a shell, a line that begins with a blank is the user's own business.
  void Take(std::string line, const SplitLine& split) {
    // Completion leaves a blank behind the word.
    if (!split.in_word) line.erase(line.find_last_not_of(' ') + 1);
    if (line.empty() || line.starts_with(' ') || line == last_) return;
    editor_.Remember(line);
    file_.Append(line);
    last_ = std::move(line);
  }

 private:
  LineEditor& editor_;
  const HistoryFile file_{HistoryPath()};
  std::string last_;
};

// What is typed is UTF-8, as all texts of the service are, in every locale of the user.
void ReadUtf8() {
  std::setlocale(LC_CTYPE, "");
  if (std::string_view(nl_langinfo(CODESET)) != "UTF-8") std::setlocale(LC_CTYPE, "C.UTF-8");
}

}  // namespace

std::optional<Failure> RunInteractive(const GlobalOptions& global, const CLI::App& app,
                                      const RunLine& run_line) {
  ReadUtf8();
  LineEditor editor(
      [&](const std::vector<std::string>& words) { return CompleteLine(global, app, words); });
  Memory memory(editor);
  std::puts("\"help\" tells the commands, Tab completes, Ctrl-D ends.");
  for (std::string line;;) {
    switch (editor.Read(line)) {
      case LineEditor::Outcome::kEnd:
        std::puts("");
        return std::nullopt;
      case LineEditor::Outcome::kInterrupted:
        std::puts("^C");
        break;
      case LineEditor::Outcome::kLine:
        SplitLine split = SplitWords(line);
        memory.Take(line, split);
        if (!HandleLine(std::move(split), run_line)) return std::nullopt;
    }
  }
}

}  // namespace valmere::tools
