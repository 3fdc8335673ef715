// Signals are blocked while a line is edited, except within the call that waits for a key: none can
// fall between a look at what came and the wait. The handlers only take a note.
#include "tools/interactive/line_editor.h"

#include <histedit.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cwchar>
#include <stdexcept>

#include "tools/completion/completion_words.h"
#include "tools/interactive/history_file.h"
#include "tools/output/output.h"

namespace valmere::tools {
namespace {

constexpr std::size_t kMostShown = 200;
constexpr int kUsualColumns = 80;

volatile std::sig_atomic_t interrupted = 0;
volatile std::sig_atomic_t ended = 0;
volatile std::sig_atomic_t resized = 0;
volatile std::sig_atomic_t continued = 0;

extern "C" void NoteSignal(int signal) {
  switch (signal) {
    case SIGINT:
      interrupted = 1;
      break;
    case SIGWINCH:
      resized = 1;
      break;
    case SIGCONT:
      continued = 1;
      break;
    default:
      ended = 1;
  }
}

// Purpose: gives a signal to NoteSignal, and back at the end.
// Owner: LineEditor.
class NotedSignal {
 public:
  explicit NotedSignal(int signal) : signal_(signal) {
    struct sigaction action {};
    action.sa_handler = NoteSignal;
    sigemptyset(&action.sa_mask);
    sigaction(signal, &action, &before_);
  }
  ~NotedSignal() { sigaction(signal_, &before_, nullptr); }
  NotedSignal(const NotedSignal&) = delete;
  NotedSignal& operator=(const NotedSignal&) = delete;

 private:
  const int signal_;
  struct sigaction before_ {};
};

// Purpose: notes and blocks the signals that matter while a line is edited.
// Owner: LineEditor::Read.
class EditingSignals {
 public:
  EditingSignals() {
    sigset_t blocked;
    sigemptyset(&blocked);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGWINCH, SIGCONT})
      sigaddset(&blocked, signal);
    pthread_sigmask(SIG_BLOCK, &blocked, &before_);
    interrupted = 0;
  }
  ~EditingSignals() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }
  EditingSignals(const EditingSignals&) = delete;
  EditingSignals& operator=(const EditingSignals&) = delete;

  const sigset_t& before() const { return before_; }

 private:
  const NotedSignal interrupt_{SIGINT};
  const NotedSignal terminate_{SIGTERM};
  const NotedSignal hang_up_{SIGHUP};
  const NotedSignal resize_{SIGWINCH};
  const NotedSignal continue_{SIGCONT};
  sigset_t before_{};
};

// A character of the locale, put together byte by byte.
enum class Decoded { kCharacter, kMore, kNone };

Decoded Decode(char byte, std::mbstate_t& state, wchar_t& character) {
  const std::size_t length = std::mbrtowc(&character, &byte, 1, &state);
  if (length == static_cast<std::size_t>(-2)) return Decoded::kMore;
  if (length != static_cast<std::size_t>(-1)) return Decoded::kCharacter;
  state = {};
  return Decoded::kNone;
}

std::size_t CharactersIn(const std::string& text) {
  const std::size_t count = std::mbstowcs(nullptr, text.c_str(), 0);
  return count == static_cast<std::size_t>(-1) ? text.size() : count;
}

// What all begin with, cut between two characters of UTF-8.
std::string CommonBeginning(const std::vector<std::string>& texts) {
  std::string common = texts.front();
  for (const std::string& text : texts) {
    const auto differ = std::mismatch(common.begin(), common.end(), text.begin(), text.end());
    common.erase(differ.first, common.end());
  }
  const auto goes_on = [&](char byte) { return (static_cast<unsigned char>(byte) & 0xc0) == 0x80; };
  const std::string& whole = texts.front();
  while (common.size() < whole.size() && goes_on(whole[common.size()]))
    common.pop_back();
  return common;
}

int TerminalColumns() {
  winsize size{};
  return ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0 ? size.ws_col
                                                                         : kUsualColumns;
}

// Below the line that is edited, in columns that are read downwards.
void ShowChoices(const std::vector<std::string>& choices) {
  const std::size_t shown = std::min(choices.size(), kMostShown);
  std::size_t width = 0;
  for (std::size_t i = 0; i < shown; ++i)
    width = std::max(width, CharactersIn(choices[i]) + 2);
  const std::size_t columns = std::max<std::size_t>(1, TerminalColumns() / width);
  const std::size_t rows = (shown + columns - 1) / columns;
  std::fputs("\r\n", stdout);
  for (std::size_t row = 0; row < rows; ++row) {
    for (std::size_t i = row; i < shown; i += rows) {
      std::fputs(EscapeControls(choices[i]).c_str(), stdout);
      const bool last = i + rows >= shown;
      for (std::size_t pad = CharactersIn(choices[i]); !last && pad < width; ++pad)
        std::fputc(' ', stdout);
    }
    std::fputs("\r\n", stdout);
  }
  if (shown < choices.size()) std::printf("... and %zu more\r\n", choices.size() - shown);
}

// The word as it is to stand in the line: in the quotes that the user began it with.
std::string Written(const std::string& text, std::string_view raw, bool complete) {
  const char quote =
      !raw.empty() && (raw.front() == '\'' || raw.front() == '"') ? raw.front() : '\0';
  std::string written = QuoteRest(text, quote);
  if (quote != '\0') written.insert(written.begin(), quote);
  const bool ends = complete && EndsItsWord(text);
  if (ends && quote != '\0') written += quote;
  return ends ? written + " " : written;
}

}  // namespace

struct LineEditor::Parts {
  explicit Parts(WordCompleter word_completer);
  ~Parts();
  Parts(const Parts&) = delete;
  Parts& operator=(const Parts&) = delete;

  static Parts& Of(EditLine* editor);
  int ReadKey(wchar_t* key);
  bool AwaitInput();
  unsigned char Complete();
  void HandleNotes();

  const WordCompleter completer;
  // A command that does nothing about SIGINT must not lose the program for it.
  const NotedSignal interrupt{SIGINT};
  EditLine* const editor;
  History* const history;
  const sigset_t* waiting_mask = nullptr;  // while a line is read
};

LineEditor::Parts::Parts(WordCompleter word_completer)
    : completer(std::move(word_completer)),
      editor(el_init("valmere", stdin, stdout, stderr)),
      history(history_init()) {
  if (editor == nullptr || history == nullptr)
    throw std::runtime_error("the terminal cannot be used");
  HistEvent event{};
  ::history(history, &event, H_SETSIZE, static_cast<int>(HistoryFile::kMostLines));
  ::history(history, &event, H_SETUNIQUE, 1);
  el_set(editor, EL_CLIENTDATA, this);
  el_set(
      editor, EL_PROMPT, +[](EditLine*) {
        static char prompt[] = "valmere> ";
        return prompt;
      });
  el_set(editor, EL_EDITOR, "emacs");
  el_set(editor, EL_HIST, ::history, history);
  el_set(
      editor, EL_GETCFN, +[](EditLine* asking, wchar_t* key) { return Of(asking).ReadKey(key); });
  // The narrow form of this call would keep copies of the two texts that it never frees.
  el_wset(
      editor, EL_ADDFN, L"valmere-complete", L"Complete the word",
      +[](EditLine* asking, int) { return Of(asking).Complete(); });
  el_set(editor, EL_BIND, "^I", "valmere-complete", nullptr);
  el_set(editor, EL_BIND, "^R", "em-inc-search-prev", nullptr);
  // While a command runs, Ctrl-C leaves no "^C" before the next prompt.
  el_set(editor, EL_SETTY, "-x", "-echoctl", nullptr);
  el_source(editor, nullptr);  // the user's own key bindings
}

LineEditor::Parts::~Parts() {
  el_end(editor);
  history_end(history);
}

LineEditor::Parts& LineEditor::Parts::Of(EditLine* editor) {
  void* parts = nullptr;
  el_get(editor, EL_CLIENTDATA, &parts);
  return *static_cast<Parts*>(parts);
}

void LineEditor::Parts::HandleNotes() {
  if (resized != 0) {
    resized = 0;
    el_resize(editor);
  }
  if (continued != 0) {
    // The shell has had the terminal in the meantime.
    continued = 0;
    el_set(editor, EL_PREP_TERM, 1);
    el_set(editor, EL_REFRESH);
  }
}

// False when a signal ends the line.
bool LineEditor::Parts::AwaitInput() {
  for (;;) {
    pollfd input{STDIN_FILENO, POLLIN, 0};
    const int ready = ppoll(&input, 1, nullptr, waiting_mask);
    HandleNotes();
    if (interrupted != 0 || ended != 0) return false;
    if (ready > 0) return true;
    if (ready < 0 && errno != EINTR) return false;
  }
}

// 1 with a key, 0 at the end of the input, -1 when a signal came.
int LineEditor::Parts::ReadKey(wchar_t* key) {
  std::fflush(stdout);
  std::mbstate_t state{};
  for (;;) {
    if (!AwaitInput()) {
      errno = EINTR;
      return -1;
    }
    char byte = 0;
    const ssize_t count = read(STDIN_FILENO, &byte, 1);
    if (count < 0 && (errno == EINTR || errno == EAGAIN)) continue;
    if (count <= 0) return 0;
    if (Decode(byte, state, *key) == Decoded::kCharacter) return 1;
  }
}

// The word up to the cursor; what stands behind the cursor stays.
unsigned char LineEditor::Parts::Complete() {
  const LineInfo* info = el_line(editor);
  const std::string line(info->buffer, info->cursor);
  SplitLine split = SplitWords(line);
  if (!split.in_word) split.words.emplace_back();
  const std::vector<std::string> candidates = completer(split.words);
  if (candidates.empty()) return CC_ERROR;
  const std::string common = CommonBeginning(candidates);
  const bool complete = candidates.size() == 1;
  const std::string raw = line.substr(split.last_start);
  if (!complete && common == split.words.back()) {
    ShowChoices(candidates);
    return CC_REDISPLAY;
  }
  el_deletestr(editor, static_cast<int>(CharactersIn(raw)));
  if (el_insertstr(editor, Written(common, raw, complete).c_str()) != 0) return CC_ERROR;
  return CC_REFRESH;
}

LineEditor::LineEditor(WordCompleter completer)
    : parts_(std::make_unique<Parts>(std::move(completer))) {}

LineEditor::~LineEditor() = default;

LineEditor::Outcome LineEditor::Read(std::string& line) {
  const EditingSignals signals;
  parts_->waiting_mask = &signals.before();
  // Before the prompt is shown: what is typed at the sight of it must not be taken as lines are.
  el_set(parts_->editor, EL_PREP_TERM, 1);
  int length = 0;
  const char* text = el_gets(parts_->editor, &length);
  if (interrupted != 0) return Outcome::kInterrupted;
  if (ended != 0 || text == nullptr || length <= 0) return Outcome::kEnd;
  line.assign(text, static_cast<std::size_t>(length));
  while (line.ends_with('\n') || line.ends_with('\r'))
    line.pop_back();
  return Outcome::kLine;
}

void LineEditor::Remember(const std::string& line) {
  HistEvent event{};
  ::history(parts_->history, &event, H_ENTER, line.c_str());
}

}  // namespace valmere::tools
