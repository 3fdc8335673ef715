// A value as the writer writes it.
#pragma once

#include <string>

#include "json/json_writer.h"

namespace valmere::test {

inline std::string Written(const JsonValue& value) {
  std::string text;
  WriteJson(value, text);
  return text;
}

}  // namespace valmere::test
