// One decoder for all: it takes a character off the front of a text, or one byte that begins none.
#include "tools/output/text.h"

#include <langinfo.h>

#include <cwchar>
#include <optional>

namespace valmere::tools {
namespace {

struct Form {
  unsigned char mask;   // of the bits that tell the form
  unsigned char value;  // of those bits
  char32_t least;       // a smaller number has a shorter form
  std::size_t length;
};

constexpr Form kUtf8Forms[] = {
    {0x80, 0x00, 0, 1}, {0xe0, 0xc0, 0x80, 2}, {0xf0, 0xe0, 0x800, 3}, {0xf8, 0xf0, 0x10000, 4}};

bool IsCharacter(char32_t number, const Form& form) {
  const bool surrogate = number >= 0xd800 && number <= 0xdfff;
  return number >= form.least && number <= 0x10ffff && !surrogate;
}

std::optional<char32_t> Decode(std::string_view text, const Form& form) {
  if (text.size() < form.length) return std::nullopt;
  char32_t number =
      static_cast<unsigned char>(text.front()) & static_cast<unsigned char>(~form.mask);
  for (std::size_t i = 1; i < form.length; ++i) {
    const auto byte = static_cast<unsigned char>(text[i]);
    if ((byte & 0xc0) != 0x80) return std::nullopt;
    number = number << 6 | (byte & 0x3f);
  }
  return IsCharacter(number, form) ? std::optional(number) : std::nullopt;
}

struct Character {
  std::size_t length;
  std::optional<char32_t> number;  // none for a byte that begins no character
};

Character FirstOf(std::string_view text) {
  const auto first = static_cast<unsigned char>(text.front());
  for (const Form& form : kUtf8Forms) {
    if ((first & form.mask) != form.value) continue;
    if (const auto number = Decode(text, form)) return {form.length, number};
  }
  return {1, std::nullopt};
}

// A character that the locale does not know is shown as some replacement.
std::size_t WidthOf(const Character& character) {
  if (!character.number) return 1;
  const int width = wcwidth(static_cast<wchar_t>(*character.number));
  return width < 0 ? 1 : static_cast<std::size_t>(width);
}

}  // namespace

bool IsUtf8(std::string_view text) {
  while (!text.empty()) {
    const Character character = FirstOf(text);
    if (!character.number) return false;
    text.remove_prefix(character.length);
  }
  return true;
}

bool TerminalShowsUtf8() {
  return std::string_view(nl_langinfo(CODESET)) == "UTF-8";
}

std::size_t DisplayWidth(std::string_view text) {
  std::size_t width = 0;
  while (!text.empty()) {
    const Character character = FirstOf(text);
    width += WidthOf(character);
    text.remove_prefix(character.length);
  }
  return width;
}

std::string Shorten(std::string_view text, std::size_t columns) {
  // No character takes more columns than bytes.
  if (text.size() <= columns || DisplayWidth(text) <= columns) return std::string(text);
  const std::string_view mark = TerminalShowsUtf8() ? "…" : "...";
  const std::size_t marked = DisplayWidth(mark);
  const std::size_t room = columns > marked ? columns - marked : 0;
  std::size_t width = 0;
  std::size_t taken = 0;
  for (;;) {
    const Character character = FirstOf(text.substr(taken));
    if (width + WidthOf(character) > room) break;
    width += WidthOf(character);
    taken += character.length;
  }
  return std::string(text.substr(0, taken)).append(mark);
}

}  // namespace valmere::tools
