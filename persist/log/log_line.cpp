// The time has the form that the C standard gives to asctime, which itself shares one buffer among
// all threads and so isn't called here.
#include "persist/log/log_line.h"

#include <array>
#include <charconv>

namespace valmere {
namespace {

constexpr std::array<std::string_view, 7> kDays = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
constexpr std::array<std::string_view, 12> kMonths = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                                      "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};

template <std::size_t kCount>
std::string_view NameOf(const std::array<std::string_view, kCount>& names, int number) {
  const auto index = static_cast<std::size_t>(number);
  return index < kCount ? names[index] : std::string_view("???");
}

void AppendNumber(std::string& text, int number, std::size_t width, char fill) {
  char digits[12];
  const std::to_chars_result result = std::to_chars(digits, digits + sizeof digits, number);
  const auto length = static_cast<std::size_t>(result.ptr - digits);
  if (length < width) text.append(width - length, fill);
  text.append(digits, length);
}

void AppendEscaped(std::string& text, char character) {
  constexpr char kHex[] = "0123456789ABCDEF";
  const auto byte = static_cast<unsigned char>(character);
  switch (character) {
    case '"':
    case '\\':
      text.append({'\\', character});
      return;
    case '\r':
      text.append("\\r");
      return;
    case '\n':
      text.append("\\n");
      return;
    case '\t':
      text.append("\\t");
      return;
    default:
      if (byte >= 0x20 && byte < 0x7F)
        text.push_back(character);
      else
        text.append({'\\', 'x', kHex[byte >> 4], kHex[byte & 0xF]});
  }
}

}  // namespace

std::string FormatLogLine(const std::tm& local_time, std::string_view message) {
  constexpr std::size_t kTimeLength = 24;
  std::string line;
  line.reserve(kTimeLength + 1 + message.size() + 2);
  line.append(NameOf(kDays, local_time.tm_wday)).push_back(' ');
  line.append(NameOf(kMonths, local_time.tm_mon));
  AppendNumber(line, local_time.tm_mday, 3, ' ');
  line.push_back(' ');
  AppendNumber(line, local_time.tm_hour, 2, '0');
  line.push_back(':');
  AppendNumber(line, local_time.tm_min, 2, '0');
  line.push_back(':');
  AppendNumber(line, local_time.tm_sec, 2, '0');
  line.push_back(' ');
  AppendNumber(line, 1900 + local_time.tm_year, 1, ' ');
  line.append(1, ',').append(message).append("\r\n");
  return line;
}

std::string QuoteForLog(std::string_view client_text) {
  const std::string_view shown = client_text.substr(0, kLongestLogQuote);
  std::string quote;
  quote.reserve(shown.size() + 5);
  quote.push_back('"');
  for (const char character : shown)
    AppendEscaped(quote, character);
  quote.push_back('"');
  if (shown.size() < client_text.size()) quote.append("...");
  return quote;
}

}  // namespace valmere
