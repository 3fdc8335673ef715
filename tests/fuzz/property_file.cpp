// A property file: what is read of it comes back when it is written line by line, and a line that
// is replaced costs no other.
#include <iterator>
#include <string>
#include <utility>

#include "persist/file/property_file_writer.h"
#include "tests/fuzz/fuzz_target.h"
#include "tests/fuzz/sealed_file.h"
#include "tests/support/memory_file_system.h"

namespace valmere::test {
namespace {

void Rewrite(MemoryFileSystem& files, const PropertyLine& line) {
  Require(RewriteLine(files, MakeWriteRequest(line.left_side, line.value, kMainFile)) ==
              RewriteResult::kWritten,
          "a line can be written");
}

PropertyMap ReadBack(MemoryFileSystem& files, PropertyFileResult& result) {
  PropertyMap map;
  result = ReadPropertyFile(files, kMainFile, map);
  return map;
}

// A rewrite costs what the file is long, so the rest is not written anew.
constexpr std::size_t kLinesWrittenAnew = 4;

void WriteLinesAnew(PropertyMap map) {
  while (map.size() > kLinesWrittenAnew)
    map.erase(std::prev(map.end()));
  MemoryFileSystem files;
  for (const auto& [key, line] : map)
    Rewrite(files, line);
  PropertyFileResult result = PropertyFileResult::kRead;
  const PropertyMap again = ReadBack(files, result);
  Require(map.empty() || result == PropertyFileResult::kRead, "lines that were written are read");
  Require(again == map, "lines are read as they were written");
}

// Also in a file with a wrong trailer, whose lines are not read.
void ReplaceOneLine(MemoryFileSystem& files, PropertyMap map, bool lines_end) {
  const PropertyLine line =
      map.empty() ? PropertyLine{"k|g:n", "1"} : PropertyLine{map.begin()->second.left_side, "new"};
  Rewrite(files, line);
  PropertyFileResult result = PropertyFileResult::kRead;
  PropertyMap again = ReadBack(files, result);
  Require(result == PropertyFileResult::kRead || result == PropertyFileResult::kMalformedLine,
          "a rewrite seals the file");
  // A last line that was passed over for want of its end has one now.
  if (!lines_end || map.empty()) return;
  Require(again.size() == map.size(), "a line that is replaced adds no key and costs none");
  const std::string key = map.begin()->first;
  map.erase(key);
  again.erase(key);
  Require(again == map, "a line that is replaced leaves the others");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view bytes(reinterpret_cast<const char*>(data), size);
  MemoryFileSystem files;
  files.Put(kMainFile, bytes);
  PropertyMap map;
  const PropertyFileResult result = ReadPropertyFile(files, kMainFile, map);
  const bool taken =
      result == PropertyFileResult::kRead || result == PropertyFileResult::kMalformedLine;
  Require(taken || map.empty(), "a file that is refused gives nothing");
  const std::string_view body = taken ? bytes.substr(0, size - kPropertyFileTrailer) : "";
  Require(taken == (size > kPropertyFileTrailer &&
                    Sealed(bytes.substr(0, size - kPropertyFileTrailer)) == bytes),
          "a file counts if its trailer does");
  WriteLinesAnew(map);
  ReplaceOneLine(files, std::move(map), body.ends_with('\n'));
  return 0;
}

}  // namespace valmere::test
