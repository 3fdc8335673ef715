// The examples of the format descriptions, byte for byte.
#include <gtest/gtest.h>

#include <ctime>

#include "persist/file/property_file.h"
#include "persist/file/property_file_writer.h"
#include "persist/log/log_line.h"
#include "tests/support/hex_example.h"
#include "tests/support/memory_file_system.h"

namespace valmere::test {
namespace {

constexpr platform::WidePathView kFile = u"/Store/Properties.ini";

std::string Example(const std::string& name) {
  return HexExample(std::string(VALMERE_FORMATS) + "/" + name);
}

TEST(FormatExamples, ThePropertyFileIsRead) {
  MemoryFileSystem files;
  files.Put(kFile, Example("property-file.md"));
  PropertyMap map;
  EXPECT_EQ(ReadPropertyFile(files, kFile, map), PropertyFileResult::kRead);
  const PropertyMap expected = {{"A1:B2", {"A1:B2|General:Speed", "6=six"}},
                                {"A1:C3", {"A1:C3|General:Name", ""}}};
  EXPECT_EQ(map, expected);
}

TEST(FormatExamples, ThePropertyFileIsWritten) {
  MemoryFileSystem files;
  for (const WriteRequest& request : {MakeWriteRequest("A1:B2|General:Speed", "8", kFile),
                                      MakeWriteRequest("A1:C3|General:Name", "", kFile),
                                      MakeWriteRequest("A1:B2|General:Speed", "6=six", kFile)})
    EXPECT_EQ(RewriteLine(files, request), RewriteResult::kWritten);
  EXPECT_EQ(files.Get(kFile), Example("property-file.md"));
}

TEST(FormatExamples, TheLogLineIsWritten) {
  std::tm time{};
  time.tm_wday = 1;
  time.tm_mon = 10;
  time.tm_mday = 16;
  time.tm_hour = 9;
  time.tm_min = 30;
  time.tm_year = 126;
  const std::string message = "Property " + QuoteForLog("Speed") + " was not set to " +
                              QuoteForLog("6\n7") + ": it can't be set";
  EXPECT_EQ(FormatLogLine(time, message), Example("log-file.md"));
}

}  // namespace
}  // namespace valmere::test
