// The text of a log line.
#pragma once

#include <cstddef>
#include <ctime>
#include <string>
#include <string_view>

namespace valmere {

// "Mon Nov 16 09:30:00 2026,message" and CR LF; the message is taken byte for byte.
std::string FormatLogLine(const std::tm& local_time, std::string_view message);

// A quote longer than this is cut there.
inline constexpr std::size_t kLongestLogQuote = 256;

// A client's text for use in a message: in double quotes, with quotes, backslashes and all bytes
// that aren't printable ASCII escaped as \", \\, \r, \n, \t and \xNN, so that it can neither end
// the line nor look like another message. A cut quote is followed by "...".
std::string QuoteForLog(std::string_view client_text);

}  // namespace valmere
