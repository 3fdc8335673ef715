// The values of a text that is being parsed.
#pragma once

#include <cstddef>
#include <exception>
#include <string_view>
#include <utility>
#include <vector>

#include "json/json_text.h"
#include "json/json_value.h"
#include "json/parse_stop.h"

namespace valmere {

// Purpose: keeps the finished values and texts of a parse until a container or the caller takes
//   them; the grammar's own stack holds only scalars, marks and places in the text.
// Owner: the call of ParseJson, for its length.
// Threads: one.
// Errors: each step returns false when it failed; RethrowFailure then throws what stopped it. An
//   exception must not pass through the generated parser, which would lose its stack. A parse that
//   is stopped fails at the next step, or within one.
class JsonBuilder {
 public:
  // Where the values of an open container begin.
  using Mark = std::size_t;

  explicit JsonBuilder(const ParseStop& stop);

  Mark AfterLast() const { return values_.size(); }
  Mark AtLast() const { return values_.size() - 1; }

  // Keeps the content of a string token, with its quotes cut and its escapes resolved.
  bool PushText(std::string_view token);
  // Makes the last text a value.
  bool PushString();
  bool PushNull();
  template <class Scalar>
  bool Push(Scalar scalar) {
    return Try([&] { NextValue().emplace_back(scalar); });
  }
  // Makes the values since `first`, with as many texts as keys, one value.
  bool CloseObject(Mark first);
  // Makes the values since `first` one value.
  bool CloseArray(Mark first);

  JsonValue TakeResult() { return std::move(values_.back()); }
  // The grammar's message about a text that is not one value; a constant. Empty for any other.
  std::string_view error() const { return error_; }
  void set_error(std::string_view error) { error_ = error; }
  void RethrowFailure();

 private:
  template <class Step>
  bool Try(Step step) {
    try {
      step();
      return true;
    } catch (const std::exception&) {
      failure_ = std::current_exception();
      return false;
    }
  }

  // Each with room for one more.
  std::vector<JsonValue>& NextValue() {
    if (values_.size() == values_.capacity()) GrowValues();
    return values_;
  }
  std::vector<JsonText>& NextText();
  void GrowValues();

  const ParseStop stop_;
  std::vector<JsonValue> values_;
  std::vector<JsonText> texts_;
  std::string_view error_;
  std::exception_ptr failure_;
};

}  // namespace valmere
