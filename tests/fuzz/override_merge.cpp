// A property file and its override. The input's first byte tells what is wrong with them, the next
// two how long the first file's lines are; the rest are the override's.
#include "persist/file/override_merge.h"

#include <algorithm>
#include <string>
#include <vector>

#include "persist/file/property_file_writer.h"
#include "tests/fuzz/fuzz_target.h"
#include "tests/fuzz/sealed_file.h"
#include "tests/support/memory_file_system.h"

namespace valmere::test {
namespace {

enum Fault : unsigned { kMainUnsealed = 1, kOverrideUnsealed = 2, kNoOverride = 4, kKept = 8 };

void Put(MemoryFileSystem& files, platform::WidePathView path, std::string_view body,
         bool unsealed) {
  files.Put(path, unsealed ? std::string(body) : Sealed(body));
}

PropertyMap ReadOf(MemoryFileSystem& files, platform::WidePathView path,
                   PropertyFileResult& result) {
  PropertyMap map;
  result = ReadPropertyFile(files, path, map);
  return map;
}

// What the main file's lines have to be after the override.
PropertyMap Overridden(PropertyMap map, const PropertyMap& overrides,
                       std::vector<PropertyLine>& lines) {
  for (auto& [key, line] : map) {
    const auto entry = overrides.find(key);
    if (entry == overrides.end()) continue;
    line.value = entry->second.value;
    lines.push_back(entry->second);
  }
  return map;
}

bool SameValues(const PropertyMap& left, const PropertyMap& right) {
  return std::equal(left.begin(), left.end(), right.begin(), right.end(),
                    [](const auto& a, const auto& b) {
                      return a.first == b.first && a.second.value == b.second.value;
                    });
}

void Merge(MemoryFileSystem& files, bool one_line_for_each, bool removals_fail) {
  PropertyFileResult main_result = PropertyFileResult::kRead;
  PropertyFileResult override_result = PropertyFileResult::kRead;
  PropertyMap expected = ReadOf(files, kMainFile, main_result);
  const PropertyMap overrides = ReadOf(files, kOverrideFile, override_result);
  const bool applied =
      main_result == PropertyFileResult::kRead && override_result == PropertyFileResult::kRead;
  std::vector<PropertyLine> expected_lines;
  if (applied) expected = Overridden(std::move(expected), overrides, expected_lines);

  PropertyMap map;
  std::vector<PropertyLine> lines;
  const LoadOutcome outcome =
      LoadPropertyFiles(files, kMainFile, kOverrideFile, map, [&](const PropertyLine& line) {
        lines.push_back(line);
        return true;
      });
  Require(outcome.main_file == main_result, "the load ends as the reading of the main file");
  Require(map == expected, "the override's values stand in the place of the main file's");
  Require(lines == expected_lines, "each line that was overridden is written");
  Require(files.Exists(kOverrideFile) ==
              (override_result != PropertyFileResult::kNotOpened && (!applied || removals_fail)),
          "an override goes when it was applied");
  for (const PropertyLine& line : lines)
    Require(RewriteLine(files, MakeWriteRequest(line.left_side, line.value, kMainFile)) ==
                RewriteResult::kWritten,
            "an overridden line can be written");
  if (!applied || !one_line_for_each) return;
  const PropertyMap again = ReadOf(files, kMainFile, main_result);
  Require(main_result == PropertyFileResult::kRead, "the main file is sound after the override");
  Require(SameValues(again, expected), "the override's values are those of the next load");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Choices choices(data, size);
  const unsigned faults = choices.Byte();
  const std::size_t low = choices.Byte();
  const std::string_view main_body = choices.Bytes(low + 256 * std::size_t{choices.Byte()});
  MemoryFileSystem files;
  Put(files, kMainFile, main_body, (faults & kMainUnsealed) != 0);
  if ((faults & kNoOverride) == 0)
    Put(files, kOverrideFile, choices.Rest(), (faults & kOverrideUnsealed) != 0);
  files.FailRemovals((faults & kKept) != 0);

  PropertyMap map;
  const bool sound = ReadPropertyFile(files, kMainFile, map) == PropertyFileResult::kRead;
  Merge(files, sound && (faults & kMainUnsealed) == 0 && HasOneLineForEach(main_body, map),
        (faults & kKept) != 0);
  return 0;
}

}  // namespace valmere::test
