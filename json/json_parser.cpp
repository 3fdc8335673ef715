// The scanner works in the text itself, which needs two NULs behind it; scanner and parser are
// generated, and all their state lives in the call.
#include "json/json_parser.h"

#include <algorithm>
#include <cstddef>
#include <new>

#include "json/json_builder.h"
#include "json_grammar.tab.h"
#include "json_scanner.lex.h"
#include "platform/standard_error.h"

namespace valmere {

namespace {

constexpr std::size_t kScannerEndBytes = 2;

// A scanner on a text; both its buffer record and itself go with it.
class Scanner {
 public:
  Scanner(std::string& text, ScanState& extra) {
    if (valmere_json_lex_init_extra(&extra, &state_) != 0) throw std::bad_alloc();
    valmere_json__scan_buffer(text.data(), text.size(), state_);
  }
  ~Scanner() { valmere_json_lex_destroy(state_); }
  Scanner(const Scanner&) = delete;
  Scanner& operator=(const Scanner&) = delete;

  yyscan_t state() const { return state_; }

 private:
  yyscan_t state_ = nullptr;
};

}  // namespace

JsonValue ParseJsonInPlace(std::string& text, const ParseStop& stop, std::string_view& error) {
  text.resize(std::min(text.find('\0'), text.size()));
  text.append(kScannerEndBytes, '\0');
  JsonBuilder builder(stop);
  ScanState state{stop};
  const Scanner scanner(text, state);
  const bool parsed = valmere_json_parse(builder, scanner.state()) == 0;
  error = builder.error();
  builder.RethrowFailure();
  return parsed ? builder.TakeResult() : JsonValue();
}

JsonValue ParseJsonInPlace(std::string& text, const ParseStop& stop) {
  std::string_view error;
  JsonValue value = ParseJsonInPlace(text, stop, error);
  if (!error.empty()) ReportParseError(error);
  return value;
}

// Any client can cause an error with each of its messages.
void ReportParseError(std::string_view error) noexcept {
  platform::WriteErrorLineSparingly({"error: ", error});
}

JsonValue ParseJson(std::string_view text) {
  std::string copy;
  copy.reserve(text.size() + kScannerEndBytes);
  copy = text.substr(0, text.find('\0'));
  return ParseJsonInPlace(copy);
}

}  // namespace valmere
