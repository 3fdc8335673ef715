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
enum class TextStyle { kPlain, kTitle, kName, kFaint, kWarning };

struct OutputOptions {
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
// Errors: failed() tells whether a line could not be written, closed() that its reader has gone.
class Output {
 public:
  explicit Output(std::FILE* file, OutputOptions options = {});

  void Line(std::string_view text);
  // As Shown and Styled return it; pieces can be put together.
  void ShownLine(std::string_view text);
  // Bytes as they are, on a terminal too.
  void Raw(std::string_view bytes) { Write(bytes); }
  std::string Shown(std::string_view text) const;
  std::string Styled(TextStyle style, std::string_view text) const;
  // Makes what was printed visible now.
  void Flush();

  const OutputOptions& options() const { return options_; }
  OutputForm form() const { return options_.form; }
  bool terminal() const { return terminal_; }
  // The width of the terminal; without one, 80.
  std::size_t columns() const;
  bool failed() const { return failed_; }
  bool closed() const { return closed_; }

 private:
  void Write(std::string_view text);
  void NoteFailure();

  std::FILE* const file_;
  const OutputOptions options_;
  const bool terminal_;
  const bool colored_;
  bool failed_ = false;
  bool closed_ = false;
};

// "valmere: TEXT" on standard error.
void Report(std::string_view text);

}  // namespace valmere::tools
