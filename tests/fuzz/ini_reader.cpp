// A version file. The input's first line is the key.
#include "driver/service/ini_reader.h"

#include <algorithm>
#include <string>

#include "tests/fuzz/fuzz_target.h"
#include "tests/support/memory_file_system.h"

namespace valmere::test {
namespace {

constexpr platform::WidePathView kVersionFile = u"\\windows\\version.ini";

// The first line that holds the key; nothing else counts.
std::string LineOf(std::string text, const std::string& key) {
  text += '\n';
  for (std::size_t start = 0, end; (end = text.find('\n', start)) != std::string::npos;
       start = end + 1) {
    const std::string line = text.substr(start, end - start);
    if (line.find(key) != std::string::npos) return line;
  }
  return "";
}

void Check(const std::string& value, const std::string& line, const std::string& key) {
  if (value == "Error") return;
  Require(!value.empty(), "an empty value is an error");
  Require(std::string("\"\\\r\n").find(value.back()) == std::string::npos,
          "quotes, backslashes and line ends are cut off a value's end");
  Require(value.find('\n') == std::string::npos, "a value lies in one line");
  const std::size_t equals = line.find('=', line.find(key));
  Require(equals != std::string::npos, "a value's line has an equals sign behind the key");
  const std::size_t quote = line.find('"', equals);
  Require(quote != std::string::npos && line.compare(quote + 1, value.size(), value) == 0,
          "a value begins behind the first quote");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string input(reinterpret_cast<const char*>(data), size);
  const std::size_t end = std::min(input.find('\n'), input.size());
  const std::string key = input.substr(0, end);
  const std::string text = input.substr(std::min(end + 1, input.size()));
  MemoryFileSystem files;
  files.Put(kVersionFile, text);
  Check(ReadIniValue(files, platform::WidePath(kVersionFile), key), LineOf(text, key), key);
  return 0;
}

}  // namespace valmere::test
