// Values come from other programs. A pipe gets their bytes unchanged, because a program reads them;
// a terminal would obey them.
#include "tools/output/output.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <system_error>
#include <utility>

#include "tools/process/environment.h"

namespace valmere::tools {
namespace {

constexpr std::size_t kUsualColumns = 80;

bool IsControl(unsigned char byte) {
  return byte < 0x20 || byte == 0x7f;
}

// U+0080 to U+009F in UTF-8; U+009B introduces a command just as ESC [ does.
bool IsLateControl(unsigned char byte, unsigned char next) {
  return byte == 0xc2 && next >= 0x80 && next <= 0x9f;
}

void AppendControl(unsigned char byte, std::string& out) {
  switch (byte) {
    case '\n':
      out += "\\n";
      break;
    case '\t':
      out += "\\t";
      break;
    case '\r':
      out += "\\r";
      break;
    default:
      out += "\\x";
      out += "0123456789ABCDEF"[byte >> 4];
      out += "0123456789ABCDEF"[byte & 0xf];
  }
}

bool UsesColor(ColorChoice choice, bool terminal) {
  if (choice != ColorChoice::kAuto) return choice == ColorChoice::kAlways;
  return terminal && Variable("NO_COLOR").empty() && Variable("TERM") != "dumb";
}

std::string_view CodeOf(TextStyle style) {
  switch (style) {
    case TextStyle::kTitle:
      return "1";
    case TextStyle::kName:
      return "36";
    case TextStyle::kFaint:
      return "2";
    case TextStyle::kWarning:
      return "33";
    case TextStyle::kPlain:
      break;
  }
  return "";
}

}  // namespace

std::string EscapeControls(std::string_view text) {
  std::string out;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const auto byte = static_cast<unsigned char>(text[i]);
    const auto next = static_cast<unsigned char>(i + 1 < text.size() ? text[i + 1] : '\0');
    if (IsLateControl(byte, next)) {
      AppendControl(byte, out);
      AppendControl(next, out);
      ++i;
    } else if (IsControl(byte)) {
      AppendControl(byte, out);
    } else {
      out += text[i];
    }
  }
  return out;
}

Output::Output(std::FILE* file, OutputOptions options)
    : file_(file),
      options_(std::move(options)),
      terminal_(isatty(fileno(file)) == 1),
      colored_(UsesColor(options_.color, terminal_)) {}

void Output::Line(std::string_view text) {
  ShownLine(terminal_ ? EscapeControls(text) : text);
}

void Output::ShownLine(std::string_view text) {
  Write(text);
  const bool null = options_.null_ends && options_.form != OutputForm::kJson;
  Write(null ? std::string_view("\0", 1) : std::string_view("\n"));
}

std::string Output::Shown(std::string_view text) const {
  return terminal_ ? EscapeControls(text) : std::string(text);
}

std::string Output::Styled(TextStyle style, std::string_view text) const {
  const std::string_view code = CodeOf(style);
  if (!colored_ || code.empty()) return Shown(text);
  std::string styled = "\x1b[";
  return styled.append(code).append("m").append(Shown(text)).append("\x1b[0m");
}

void Output::Flush() {
  if (std::fflush(file_) != 0) NoteFailure();
}

// COLUMNS goes first: it is how a user, or a pager, says otherwise.
std::size_t Output::columns() const {
  const std::string wanted = Variable("COLUMNS");
  std::size_t columns = 0;
  const auto [end, error] = std::from_chars(wanted.data(), wanted.data() + wanted.size(), columns);
  if (error == std::errc() && end == wanted.data() + wanted.size() && columns > 0) return columns;
  winsize size{};
  if (ioctl(fileno(file_), TIOCGWINSZ, &size) == 0 && size.ws_col > 0) return size.ws_col;
  return kUsualColumns;
}

void Output::Write(std::string_view text) {
  if (std::fwrite(text.data(), 1, text.size(), file_) != text.size()) NoteFailure();
}

void Output::NoteFailure() {
  if (!std::exchange(failed_, true)) closed_ = errno == EPIPE;
}

void Report(std::string_view text) {
  std::string message = "valmere: ";
  // Lists of candidates have lines; what else steers a terminal stays out.
  for (std::size_t start = 0; start <= text.size();) {
    const std::size_t end = std::min(text.find('\n', start), text.size());
    message += EscapeControls(text.substr(start, end - start)) + "\n";
    start = end + 1;
  }
  std::fwrite(message.data(), 1, message.size(), stderr);
}

}  // namespace valmere::tools
