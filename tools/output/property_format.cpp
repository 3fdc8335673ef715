// One walk over the format both checks it and fills it in.
#include "tools/output/property_format.h"

namespace valmere::tools {
namespace {

using client::Property;

const std::string* FieldOf(char letter, const Property& property) {
  switch (letter) {
    case 'c':
      return &property.component_name;
    case 'g':
      return &property.group_name;
    case 'n':
      return &property.name;
    case 'C':
      return &property.component;
    case 'G':
      return &property.group_guid;
    case 'N':
      return &property.guid;
    case 'v':
      return &property.value;
    case 't':
      return &property.status;
    default:
      return nullptr;
  }
}

std::optional<char> Escaped(char letter) {
  switch (letter) {
    case 'n':
      return '\n';
    case 't':
      return '\t';
    case '0':
      return '\0';
    case '\\':
      return '\\';
    default:
      return std::nullopt;
  }
}

// Appends what the two characters at the front of `rest` stand for; false when they mean nothing.
bool AppendPair(std::string_view rest, const Property& property, std::string& text) {
  if (rest.size() < 2) return false;
  if (rest[0] == '\\') {
    const auto escaped = Escaped(rest[1]);
    if (escaped) text += *escaped;
    return escaped.has_value();
  }
  if (rest[1] == '%') {
    text += '%';
    return true;
  }
  const std::string* field = FieldOf(rest[1], property);
  if (field != nullptr) text += *field;
  return field != nullptr;
}

// What was not understood is left; nothing after a format that is right.
std::string_view Fill(std::string_view format, const Property& property, std::string& text) {
  while (!format.empty()) {
    if (format.front() != '%' && format.front() != '\\') {
      text += format.front();
      format.remove_prefix(1);
    } else if (AppendPair(format, property, text)) {
      format.remove_prefix(2);
    } else {
      break;
    }
  }
  return format;
}

}  // namespace

std::optional<std::string> CheckFormat(std::string_view format) {
  std::string ignored;
  const std::string_view rest = Fill(format, Property(), ignored);
  if (rest.empty()) return std::nullopt;
  return "the format does not know \"" + std::string(rest.substr(0, 2)) +
         "\"; it knows %c %g %n %C %G %N %v %t %% \\n \\t \\0 \\\\";
}

std::string Format(std::string_view format, const Property& property) {
  std::string text;
  Fill(format, property, text);
  return text;
}

}  // namespace valmere::tools
