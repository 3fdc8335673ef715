// The file that names the log.
#include <algorithm>
#include <string>

#include "persist/log/log_facility.h"
#include "tests/fuzz/fuzz_target.h"
#include "tests/support/memory_file_system.h"

namespace valmere::test {
namespace {

constexpr platform::WidePathView kNameFile = u"/Store/LogFileName.txt";
constexpr platform::WidePathView kDefault = u"/Store/ValmereLog.txt";

bool IsAscii(std::string_view text) {
  return std::all_of(text.begin(), text.end(),
                     [](char byte) { return static_cast<unsigned char>(byte) < 0x80; });
}

// The first line less the blanks, tabs and carriage returns at its end, byte by byte.
std::string FirstLine(std::string_view text) {
  std::string line;
  for (const char byte : text) {
    if (byte == '\n') break;
    line += byte;
  }
  while (!line.empty() && (line.back() == ' ' || line.back() == '\t' || line.back() == '\r'))
    line.pop_back();
  return line;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  MemoryFileSystem files;
  files.Put(kNameFile, text);
  const platform::WidePath path = ReadLogFileName(files, kNameFile);
  const std::string line = FirstLine(text);
  if (line.empty()) Require(path == kDefault, "without a name the log has its own");
  const std::string narrow = platform::NarrowPath(path);
  if (IsAscii(line)) Require(line.empty() || narrow == line, "a name is taken as it stands");
  Require(platform::WidenPath(narrow) == path, "a wide path survives being told as text");
  return 0;
}

}  // namespace valmere::test
