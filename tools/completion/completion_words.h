// A command line taken apart as a shell does, and text quoted so that a shell takes it for itself.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace valmere::tools {

// Words split at blanks; '…', "…" and \ quote. Nothing is expanded: $, * and ~ stand for
// themselves.
struct SplitLine {
  std::vector<std::string> words;
  bool in_word = false;        // the line ends in its last word, not behind a blank
  std::size_t last_start = 0;  // where the word begins that the line ends in; its end if in none
  char open = '\0';            // the quote that the line ends within: ', " or a \ at its very end
};

SplitLine SplitWords(std::string_view line);

// `text` written so that it goes on within the quote `open`, without closing it; by backslashes
// where there is none. Empty stays empty.
std::string QuoteRest(std::string_view text, char open);

// True when a candidate is a word, not the beginning of one: a folder and "--option=" go on.
bool EndsItsWord(std::string_view candidate);

}  // namespace valmere::tools
