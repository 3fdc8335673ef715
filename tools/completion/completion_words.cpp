#include "tools/completion/completion_words.h"

namespace valmere::tools {
namespace {

constexpr std::string_view kBlanks = " \t\n";
constexpr std::string_view kEscapedInDoubleQuotes = "\"\\$`";
// What no shell looks at in a word; all else below 0x80 gets a backslash.
constexpr std::string_view kPlain =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789_./:=@%+,-";

bool Holds(std::string_view set, char character) {
  return set.find(character) != std::string_view::npos;
}

// Purpose: takes a line character by character.
// Owner: SplitWords.
class Splitter {
 public:
  explicit Splitter(std::string_view line) : line_(line) {}

  SplitLine Run() {
    for (; at_ < line_.size(); ++at_)
      Take(line_[at_]);
    if (!split_.in_word) split_.last_start = line_.size();
    return std::move(split_);
  }

 private:
  void Take(char character) {
    if (split_.open == '\'')
      TakeInSingleQuotes(character);
    else if (split_.open == '"')
      TakeInDoubleQuotes(character);
    else if (Holds(kBlanks, character))
      split_.in_word = false;
    else
      TakeBare(character);
  }

  void TakeInSingleQuotes(char character) {
    if (character == '\'')
      split_.open = '\0';
    else
      Append(character);
  }

  void TakeInDoubleQuotes(char character) {
    if (character == '"')
      split_.open = '\0';
    else if (character == '\\' && at_ + 1 < line_.size() &&
             Holds(kEscapedInDoubleQuotes, line_[at_ + 1]))
      Append(line_[++at_]);
    else
      Append(character);
  }

  void TakeBare(char character) {
    StartWord();
    if (character == '\'' || character == '"')
      split_.open = character;
    else if (character != '\\')
      Append(character);
    else if (at_ + 1 < line_.size())
      Append(line_[++at_]);
    else
      split_.open = '\\';
  }

  void StartWord() {
    if (split_.in_word) return;
    split_.in_word = true;
    split_.last_start = at_;
    split_.words.emplace_back();
  }
  void Append(char character) { split_.words.back() += character; }

  const std::string_view line_;
  std::size_t at_ = 0;
  SplitLine split_;
};

std::string Bare(std::string_view text) {
  std::string quoted;
  for (const char character : text) {
    const bool ascii = static_cast<unsigned char>(character) < 0x80;
    // A tilde at the beginning of a path means the home folder, which is what the user wants.
    const bool home = character == '~' && quoted.empty() && text.starts_with("~/");
    if (ascii && !home && !Holds(kPlain, character)) quoted += '\\';
    quoted += character;
  }
  return quoted;
}

}  // namespace

SplitLine SplitWords(std::string_view line) {
  return Splitter(line).Run();
}

std::string QuoteRest(std::string_view text, char open) {
  if (open != '\'' && open != '"') return Bare(text);
  std::string quoted;
  for (const char character : text) {
    if (open == '\'' && character == '\'') {
      quoted += "'\\''";
      continue;
    }
    if (open == '"' && Holds(kEscapedInDoubleQuotes, character)) quoted += '\\';
    quoted += character;
  }
  return quoted;
}

bool EndsItsWord(std::string_view candidate) {
  return !candidate.ends_with('/') && !candidate.ends_with('=');
}

}  // namespace valmere::tools
