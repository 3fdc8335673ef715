// What the user sees: data on standard output, messages on standard error.
#pragma once

#include <cstddef>
#include <cstdio>
#include <string>
#include <string_view>

namespace valmere::tools {

enum class ColorChoice { kAuto, kAlways, kNever };
enum class OutputForm { kText, kJson, kFormat };
// What a piece of text is, which a terminal shows by its colour.
enum class Ink { kPlain, kTitle, kName, kFaint, kWarning };

struct OutputStyle {
  ColorChoice color = ColorChoice::kAuto;
  OutputForm form = OutputForm::kText;
  std::string format;      // of kFormat
  bool null_ends = false;  // NUL instead of a line feed, except in JSON
};

// `text` with control characters as \n, \t, \r or \xHH, so that a value can't steer a terminal.
std::string EscapeControls(std::string_view text);

// Purpose: prints lines of data, escaped when a terminal shows them and as they are otherwise.
// Owner: main.
// Threads: one.
// Errors: failed() tells whether a line could not be written, closed() that nobody reads any more.
class Output {
 public:
  explicit Output(std::FILE* file, OutputStyle style = {});

  void Line(std::string_view text);
  // As Shown and Painted return it; pieces can be put together.
  void ShownLine(std::string_view text);
  // Bytes as they are, on a terminal too.
  void Raw(std::string_view bytes) { Write(bytes); }
  std::string Shown(std::string_view text) const;
  std::string Painted(Ink ink, std::string_view text) const;
  // Makes what was printed visible now.
  void Flush();

  const OutputStyle& style() const { return style_; }
  OutputForm form() const { return style_.form; }
  bool terminal() const { return terminal_; }
  // The width of the terminal; without one, 80.
  std::size_t columns() const;
  bool failed() const { return failed_; }
  bool closed() const { return closed_; }

 private:
  void Write(std::string_view text);
  void NoteFailure();

  std::FILE* const file_;
  const OutputStyle style_;
  const bool terminal_;
  const bool colored_;
  bool failed_ = false;
  bool closed_ = false;
};

// "valmere: TEXT" on standard error.
void Complain(std::string_view text);

}  // namespace valmere::tools
