// Each kind has its own short function; those of objects and arrays recurse.
#include "json/json_writer.h"

#include <charconv>
#include <cstddef>
#include <string_view>

namespace valmere {

namespace {

// The default of output streams.
constexpr int kFloatDigits = 6;
// Holds any 64-bit integer and any float of that many digits.
constexpr std::size_t kNumberBytes = 32;

template <class... Format>
void WriteNumber(std::string& out, Format... format) {
  char digits[kNumberBytes];
  const auto [end, error] = std::to_chars(digits, digits + sizeof digits, format...);
  out.append(digits, end);
}

void WriteText(std::string_view text, std::string& out) {
  out += '"';
  out += text;
  out += '"';
}

void WriteObject(const JsonMembers& members, std::string& out) {
  char before = '{';
  if (members.empty()) out += before;
  for (const JsonMember& member : members) {
    out += before;
    WriteText(member.key, out);
    out += ": ";
    WriteJson(member.value, out);
    before = ',';
  }
  out += '}';
}

void WriteArray(const std::vector<JsonValue>& elements, std::string& out) {
  char before = '[';
  if (elements.empty()) out += before;
  for (const JsonValue& element : elements) {
    out += before;
    WriteJson(element, out);
    before = ',';
  }
  out += ']';
}

}  // namespace

void WriteJson(const JsonValue& value, std::string& out) {
  switch (value.kind()) {
    case JsonKind::kInteger:
      return WriteNumber(out, value.integer());
    case JsonKind::kFloat:
      return WriteNumber(out, value.real(), std::chars_format::general, kFloatDigits);
    case JsonKind::kBoolean:
      out += value.boolean() ? "true" : "false";
      return;
    case JsonKind::kString:
      return WriteText(value.text(), out);
    case JsonKind::kObject:
      return WriteObject(value.members(), out);
    case JsonKind::kArray:
      return WriteArray(value.elements(), out);
    case JsonKind::kNull:
      out += "null";
      return;
  }
}

}  // namespace valmere
