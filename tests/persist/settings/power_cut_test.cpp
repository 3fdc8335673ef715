// The power goes after each step that reaches the disk in turn: each file created, emptied or
// removed and each byte written. What the next start finds must be a state of before, of after or
// of between two rewrites, or be refused whole.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "persist/file/override_merge.h"
#include "persist/file/property_file_writer.h"
#include "tests/persist/file/property_file_samples.h"
#include "tests/support/memory_file_system.h"

namespace valmere::test {
namespace {

using Action = std::function<void(MemoryFileSystem&)>;

// Runs the action with the power going after each of its steps; `check` sees each disk.
void ForEveryPowerCut(const Action& prepare, const Action& act, const Action& check) {
  MemoryFileSystem whole;
  prepare(whole);
  const std::uint64_t before = whole.steps();
  act(whole);
  const std::uint64_t count = whole.steps() - before;
  ASSERT_GT(count, 0u);
  for (std::uint64_t steps = 0; steps <= count; ++steps) {
    SCOPED_TRACE(steps);
    MemoryFileSystem cut;
    prepare(cut);
    cut.CutPowerAfter(steps);
    act(cut);
    cut.EndFaults();
    check(cut);
    if (::testing::Test::HasFatalFailure()) return;
  }
}

// The values of the main file in key order; nothing if it is refused, and then whole.
std::optional<std::vector<std::string>> ValuesOf(MemoryFileSystem& files) {
  PropertyMap map;
  const PropertyFileResult result = ReadPropertyFile(files, kPropertyFile, map);
  EXPECT_NE(result, PropertyFileResult::kMalformedLine);
  std::vector<std::string> values;
  for (const auto& [key, line] : map)
    values.push_back(line.value);
  if (result == PropertyFileResult::kRead) return values;
  EXPECT_TRUE(map.empty());
  return std::nullopt;
}

void Write(MemoryFileSystem& files, const PropertyLine& line) {
  RewriteLine(files, MakeWriteRequest(line.left_side, line.value, kPropertyFile));
}

TEST(PowerCut, InARewriteLeavesTheOldLinesTheNewOnesOrNone) {
  const std::string after = WithTrailer("a|n=1\nb|n=a longer value\nc|n=3\n");
  std::size_t refused = 0;
  ForEveryPowerCut(
      [](MemoryFileSystem& files) {
        files.Put(kPropertyFile, WithTrailer("a|n=1\nb|n=2\nc|n=3\n"));
      },
      [](MemoryFileSystem& files) {
        Write(files, {"b|n", "a longer value"});
      },
      [&refused](MemoryFileSystem& files) {
        const auto values = ValuesOf(files);
        if (!values) {
          ++refused;
          return;
        }
        const std::vector<std::string> old_values = {"1", "2", "3"};
        const std::vector<std::string> new_values = {"1", "a longer value", "3"};
        ASSERT_THAT(*values, ::testing::AnyOf(old_values, new_values));
      });
  // All cuts from the emptying of the file to its last byte but one.
  EXPECT_EQ(refused, after.size());
}

TEST(PowerCut, InTheFirstWriteOfAFileLeavesNoneOrAll) {
  ForEveryPowerCut([](MemoryFileSystem&) {},
                   [](MemoryFileSystem& files) {
                     Write(files, {"a|n", "1"});
                   },
                   [](MemoryFileSystem& files) {
                     const auto values = ValuesOf(files);
                     if (values) {
                       ASSERT_THAT(*values, ::testing::ElementsAre("1"));
                     }
                   });
}

TEST(PowerCut, LeavesAFileThatTheNextRewriteMends) {
  ForEveryPowerCut(
      [](MemoryFileSystem& files) { files.Put(kPropertyFile, WithTrailer("a|n=1\nb|n=2\n")); },
      [](MemoryFileSystem& files) {
        Write(files, {"b|n", "3"});
      },
      [](MemoryFileSystem& files) {
        Write(files, {"b|n", "4"});
        PropertyMap map;
        const PropertyFileResult result = ReadPropertyFile(files, kPropertyFile, map);
        // Half a line of the torn file may have become a whole, malformed one.
        ASSERT_TRUE(result == PropertyFileResult::kRead ||
                    result == PropertyFileResult::kMalformedLine);
        ASSERT_EQ(map["b"].value, "4");
      });
}

void PrepareMerge(MemoryFileSystem& files) {
  files.Put(kPropertyFile, WithTrailer("a|n=1\nb|n=2\nc|n=3\n"));
  files.Put(kOverrideFile, WithTrailer("a|n=10\nc|n=30\n"));
}

void CheckMerge(MemoryFileSystem& files) {
  PropertyMap map;
  const LoadOutcome outcome = LoadPropertyFiles(files, kPropertyFile, kOverrideFile, map,
                                                [](const PropertyLine&) { return true; });
  if (!outcome.Succeeded()) {
    ASSERT_TRUE(map.empty());
    return;
  }
  const std::vector<std::string> values = {map["a"].value, map["b"].value, map["c"].value};
  ASSERT_EQ(map.size(), 3u);
  ASSERT_THAT(values, ::testing::AnyOf(::testing::ElementsAre("1", "2", "3"),
                                       ::testing::ElementsAre("10", "2", "3"),
                                       ::testing::ElementsAre("10", "2", "30")));
}

TEST(PowerCut, InAnOverrideMergeLeavesWholeStatesOrNone) {
  ForEveryPowerCut(
      PrepareMerge,
      [](MemoryFileSystem& files) {
        std::vector<PropertyLine> lines;
        PropertyMap map;
        LoadPropertyFiles(files, kPropertyFile, kOverrideFile, map,
                          [&lines](const PropertyLine& line) {
                            lines.push_back(line);
                            return true;
                          });
        for (const PropertyLine& line : lines)
          Write(files, line);
      },
      CheckMerge);
}

TEST(PowerCut, InAnOverrideMergeThatWritesBeforeItRemovesLeavesWholeStatesOrNone) {
  ForEveryPowerCut(
      PrepareMerge,
      [](MemoryFileSystem& files) {
        PropertyMap map;
        LoadPropertyFiles(files, kPropertyFile, kOverrideFile, map,
                          [&files](const PropertyLine& line) {
                            Write(files, line);
                            return true;
                          });
      },
      CheckMerge);
}

}  // namespace
}  // namespace valmere::test
