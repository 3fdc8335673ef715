// Values come from other programs. A pipe gets their bytes unchanged, because a program reads them;
// a terminal would obey them.
#include "tools/output.h"

#include <unistd.h>

#include <algorithm>

namespace valmere::tools {
namespace {

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

void Write(std::FILE* file, std::string_view text, bool& failed) {
  failed |= std::fwrite(text.data(), 1, text.size(), file) != text.size();
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

Output::Output(std::FILE* file) : file_(file), terminal_(isatty(fileno(file)) == 1) {}

void Output::Line(std::string_view text) {
  if (terminal_)
    Write(file_, EscapeControls(text), failed_);
  else
    Write(file_, text, failed_);
  Write(file_, "\n", failed_);
}

void Complain(std::string_view text) {
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
