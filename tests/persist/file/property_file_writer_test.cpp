#include "persist/file/property_file_writer.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>

#include "persist/file/file_stream.h"
#include "persist/file/property_file.h"
#include "tests/persist/file/huge_file_system.h"
#include "tests/persist/file/property_file_samples.h"
#include "tests/support/memory_file_system.h"

namespace valmere::test {
namespace {

class PropertyFileWriterTest : public ::testing::Test {
 protected:
  RewriteResult Rewrite(std::string_view left_side, std::string_view value) {
    return RewriteLine(files_, MakeWriteRequest(left_side, value, kPropertyFile));
  }
  // The body after writing the line left side = value into a file with that body.
  std::string Rewritten(const std::string& body, std::string_view left_side,
                        std::string_view value) {
    files_.Put(kPropertyFile, WithTrailer(body));
    EXPECT_EQ(Rewrite(left_side, value), RewriteResult::kWritten);
    const std::string bytes = files_.Get(kPropertyFile).value_or("");
    const std::string new_body = bytes.substr(0, bytes.size() - 2);
    EXPECT_EQ(bytes, WithTrailer(new_body));
    return new_body;
  }

  MemoryFileSystem files_;
};

TEST(WriteRequest, HoldsThePrefixTheLineAndThePath) {
  const WriteRequest request = MakeWriteRequest("g:p|Group:Name", "a=b|c", u"/Store/x");
  EXPECT_EQ(request, (WriteRequest{"g:p|Group:Name", "g:p|Group:Name=a=b|c", u"/Store/x"}));
}

TEST_F(PropertyFileWriterTest, WritesTheGoldenFile) {
  const std::string group = "99A61D40-20CE-41EA-A579-EB92C6ED94C6:";
  const std::string first = group +
                            "CD31503F-4949-40E1-BA2C-B2A88CF420F0|General:Name of Property File="
                            "/Store/ValmereProperties.ini\n";
  const std::string left_side =
      group + "32244D1F-E72E-4F42-A4DE-CAB2C6AF88A9|General:Error Log File Name";
  files_.Put(kPropertyFile, first + left_side + "=/Store/ValmereLog.txt\n\x83\x79");
  ASSERT_EQ(Rewrite(left_side, "/Store/a|b=c.txt"), RewriteResult::kWritten);
  EXPECT_EQ(files_.Get(kPropertyFile), first + left_side + "=/Store/a|b=c.txt\n\xB4\xC5");
}

TEST_F(PropertyFileWriterTest, ReplacesALineByAShorterAndALongerOne) {
  const std::string body = "a|b=12\nc|d=34\ne|f=56\n";
  EXPECT_EQ(Rewritten(body, "a|b", ""), "a|b=\nc|d=34\ne|f=56\n");
  EXPECT_EQ(Rewritten(body, "c|d", "98"), "a|b=12\nc|d=98\ne|f=56\n");
  EXPECT_EQ(Rewritten(body, "c|d", "987654321"), "a|b=12\nc|d=987654321\ne|f=56\n");
  EXPECT_EQ(Rewritten(body, "e|f", "7"), "a|b=12\nc|d=34\ne|f=7\n");
}

TEST_F(PropertyFileWriterTest, ReplacesOnlyTheFirstLineThatBeginsWithThePrefix) {
  EXPECT_EQ(Rewritten("x|y=0\na|b=1\na|b=2\n", "a|b", "3"), "x|y=0\na|b=3\na|b=2\n");
}

TEST_F(PropertyFileWriterTest, ReplacesALineWhateverFollowsThePrefix) {
  EXPECT_EQ(Rewritten("a|bc=5\na|b=1\n", "a|b", "2"), "a|b=2\na|b=1\n");
  EXPECT_EQ(Rewritten("a|b\n", "a|b", "2"), "a|b=2\n");
}

TEST_F(PropertyFileWriterTest, DoesNotMatchInsideALineOrAcrossLines) {
  EXPECT_EQ(Rewritten("xa|b=1\na|\nb=2\n", "a|b", "3"), "xa|b=1\na|\nb=2\na|b=3\n");
  EXPECT_EQ(Rewritten("a|\n", "a|b", "3"), "a|\na|b=3\n");
}

TEST_F(PropertyFileWriterTest, AppendsALineThatIsNotThere) {
  EXPECT_EQ(Rewritten("a|b=1\n", "c|d", "2"), "a|b=1\nc|d=2\n");
  EXPECT_EQ(Rewritten("\n\n", "c|d", "2"), "\n\nc|d=2\n");
}

TEST_F(PropertyFileWriterTest, StartsAMissingOrTooShortFileAnew) {
  ASSERT_EQ(Rewrite("a|b", "1"), RewriteResult::kWritten);
  EXPECT_EQ(files_.Get(kPropertyFile), "a|b=1\n\xBD\xA7");
  for (const char* bytes : {"", "x", "xy"}) {
    files_.Put(kPropertyFile, bytes);
    ASSERT_EQ(Rewrite("a|b", "1"), RewriteResult::kWritten);
    EXPECT_EQ(files_.Get(kPropertyFile), "a|b=1\n\xBD\xA7");
  }
}

TEST_F(PropertyFileWriterTest, KeepsALastLineWithoutItsLineFeedAndEndsIt) {
  EXPECT_EQ(Rewritten("a|b=1\nc|d=2", "a|b", "3"), "a|b=3\nc|d=2\n");
  EXPECT_EQ(Rewritten("a|b=1\nc|d=2", "c|d", "3"), "a|b=1\nc|d=3\n");
  EXPECT_EQ(Rewritten("a|b=1\nc|d=2", "e|f", "3"), "a|b=1\nc|d=2\ne|f=3\n");
}

TEST_F(PropertyFileWriterTest, MakesAnUnterminatedLineVisibleToTheNextRead) {
  files_.Put(kPropertyFile, WithTrailer("a|b=1\nc|d=2"));
  PropertyMap map;
  ASSERT_EQ(ReadPropertyFile(files_, kPropertyFile, map), PropertyFileResult::kRead);
  EXPECT_EQ(map.count("c"), 0u);
  ASSERT_EQ(Rewrite("a|b", "3"), RewriteResult::kWritten);
  ASSERT_EQ(ReadPropertyFile(files_, kPropertyFile, map), PropertyFileResult::kRead);
  EXPECT_EQ(map["c"].value, "2");
}

TEST_F(PropertyFileWriterTest, KeepsMalformedLinesAndEveryByte) {
  const std::string odd("ab=1\r\n|x\n\0\x80\xFF\n", 13);
  EXPECT_EQ(Rewritten(odd, "a|b", "2"), odd + "a|b=2\n");
}

TEST_F(PropertyFileWriterTest, MendsAFileWithAWrongChecksum) {
  files_.Put(kPropertyFile, "a|b=1\nc|d=2\n??");
  ASSERT_EQ(Rewrite("c|d", "3"), RewriteResult::kWritten);
  EXPECT_EQ(files_.Get(kPropertyFile), WithTrailer("a|b=1\nc|d=3\n"));
}

TEST_F(PropertyFileWriterTest, LeavesTheFileAloneWhenItsSizeCantBeHad) {
  files_.Put(kPropertyFile, WithTrailer("a|b=1\nc|d=2\n"));
  files_.FailSizes(true);
  EXPECT_EQ(Rewrite("a|b", "3"), RewriteResult::kShortRead);
  files_.FailSizes(false);
  EXPECT_EQ(files_.Get(kPropertyFile), WithTrailer("a|b=1\nc|d=2\n"));
}

TEST_F(PropertyFileWriterTest, LeavesTheFileAloneOnceItMayNotWrite) {
  const std::string before = WithTrailer("a|b=1\n");
  files_.Put(kPropertyFile, before);
  EXPECT_EQ(RewriteLine(files_, MakeWriteRequest("a|b", "2", kPropertyFile), [] { return false; }),
            RewriteResult::kOvertaken);
  EXPECT_EQ(files_.Get(kPropertyFile), before);
}

TEST_F(PropertyFileWriterTest, WritesNoChecksumOnceItMayNotWrite) {
  files_.Put(kPropertyFile, WithTrailer("a|b=1\n"));
  int asked = 0;
  EXPECT_EQ(RewriteLine(files_, MakeWriteRequest("a|b", "2", kPropertyFile),
                        [&] { return ++asked == 1; }),
            RewriteResult::kOvertaken);
  EXPECT_EQ(files_.Get(kPropertyFile), "a|b=2\n");
}

TEST_F(PropertyFileWriterTest, LeavesTheFileAloneWhenItsLinesComeShort) {
  const std::string file = WithTrailer("a|b=1\n");
  files_.Put(kPropertyFile, file);
  for (std::size_t count = 0; count < 6; ++count) {
    files_.ShortenRead(1, count);
    EXPECT_EQ(Rewrite("a|b", "2"), RewriteResult::kShortRead) << count;
    EXPECT_EQ(files_.Get(kPropertyFile), file);
  }
  files_.ShortenRead(1, 6);
  EXPECT_EQ(Rewrite("a|b", "2"), RewriteResult::kWritten);
}

TEST_F(PropertyFileWriterTest, ReportsAFolderOrAnUnopenableFileInItsPlace) {
  files_.PutDirectory(kPropertyFile);
  EXPECT_EQ(Rewrite("a|b", "2"), RewriteResult::kShortRead);
  files_.PutUnopenable(kPropertyFile);
  EXPECT_EQ(Rewrite("a|b", "2"), RewriteResult::kNotOpened);
}

TEST_F(PropertyFileWriterTest, LeavesAFileAloneThatIsLargerThanTheLargest) {
  HugeFileSystem files;
  EXPECT_EQ(RewriteLine(files, MakeWriteRequest("a|b", "2", kPropertyFile)),
            RewriteResult::kTooLong);
  EXPECT_EQ(files.opens_for_writing(), 0);
}

// A larger file could not be read again.
TEST_F(PropertyFileWriterTest, LeavesAFileAloneThatWouldBecomeTooLarge) {
  std::string lines = "a|b=";
  lines.resize(FileStream::kLargestWhole - 9, 'v');
  const std::string file = WithTrailer(lines + "\n");
  files_.Put(kPropertyFile, file);
  EXPECT_EQ(Rewrite("c|d", "2"), RewriteResult::kTooLong);
  EXPECT_TRUE(files_.Get(kPropertyFile) == file);
  EXPECT_EQ(Rewrite("c|d", std::string(FileStream::kLargestWhole, 'v')), RewriteResult::kTooLong);
  EXPECT_TRUE(files_.Get(kPropertyFile) == file);
}

TEST_F(PropertyFileWriterTest, LeavesTheFileAloneWhenItCannotBeOpened) {
  const std::string file = WithTrailer("a|b=1\n");
  files_.Put(kPropertyFile, file);
  for (const std::uint64_t n : {1, 2}) {
    files_.FailOpen(n);
    EXPECT_EQ(Rewrite("a|b", "2"), RewriteResult::kNotOpened) << n;
    EXPECT_EQ(files_.Get(kPropertyFile), file) << n;
  }
}

TEST_F(PropertyFileWriterTest, TellsWhatAFullDiskTore) {
  for (std::uint64_t room = 0; room < 8; ++room) {
    files_.Put(kPropertyFile, WithTrailer("a|b=1\n"));
    files_.FillDiskAfter(room);
    EXPECT_EQ(Rewrite("a|b", "2"),
              room < 6 ? RewriteResult::kBodyTorn : RewriteResult::kTrailerTorn)
        << room;
    EXPECT_EQ(files_.Get(kPropertyFile), std::string("a|b=2\n\xBD\x57").substr(0, room)) << room;
    PropertyMap map;
    EXPECT_NE(ReadPropertyFile(files_, kPropertyFile, map), PropertyFileResult::kRead);
    EXPECT_TRUE(map.empty());
  }
  files_.FillDiskAfter(8);
  EXPECT_EQ(Rewrite("a|b", "2"), RewriteResult::kWritten);
}

TEST_F(PropertyFileWriterTest, RewritesLargeFiles) {
  const std::string value(1 << 20, 'v');
  EXPECT_EQ(Rewritten("a|b=1\nc|d=2\n", "a|b", value), "a|b=" + value + "\nc|d=2\n");
  EXPECT_EQ(Rewritten("a|b=" + value + "\nc|d=2\n", "a|b", "1"), "a|b=1\nc|d=2\n");
  const std::string lines = ManyLines(30'000);
  EXPECT_EQ(Rewritten(lines + "last|=1\n", "last|", "2"), lines + "last|=2\n");
}

TEST(RewriteResult, StopsDrainingAfterAShortReadAndATornTrailerOnly) {
  EXPECT_TRUE(StopsDraining(RewriteResult::kShortRead));
  EXPECT_TRUE(StopsDraining(RewriteResult::kTrailerTorn));
  EXPECT_FALSE(StopsDraining(RewriteResult::kWritten));
  EXPECT_FALSE(StopsDraining(RewriteResult::kNotOpened));
  EXPECT_FALSE(StopsDraining(RewriteResult::kBodyTorn));
}

TEST(RewriteResult, HasAnEndOfASentenceForEachValue) {
  EXPECT_EQ(Describe(RewriteResult::kWritten), "it was written");
  EXPECT_EQ(Describe(RewriteResult::kShortRead), "its old lines can't be read to their end");
  EXPECT_EQ(Describe(RewriteResult::kNotOpened), "it can't be opened");
  EXPECT_EQ(Describe(RewriteResult::kBodyTorn), "its lines can't all be written");
  EXPECT_EQ(Describe(RewriteResult::kTrailerTorn), "its checksum can't be written");
}

}  // namespace
}  // namespace valmere::test
