#include "persist/file/file_stream.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>

#include "tests/persist/file/huge_file_system.h"
#include "tests/support/memory_file_system.h"

namespace valmere::test {
namespace {

using platform::OpenFlags;

class FileStreamTest : public ::testing::Test {
 protected:
  std::string Read(FileStream& stream, int length) {
    std::string bytes(static_cast<std::size_t>(length), '?');
    const int count = stream.Read(bytes.data(), length);
    bytes.resize(static_cast<std::size_t>(count));
    return bytes;
  }

  MemoryFileSystem files_;
};

TEST_F(FileStreamTest, MovesBytesAsTheyStand) {
  const std::string bytes(
      "a\r\n\0\x80\xFF\x1A"
      "b",
      8);
  {
    FileStream out(files_, u"/Store/x", OpenFlags::kWrite);
    ASSERT_TRUE(out.IsOpen());
    EXPECT_EQ(out.Write(bytes.data(), 8), 8);
  }
  EXPECT_EQ(files_.Get(u"/Store/x"), bytes);
  FileStream in(files_, u"/Store/x", OpenFlags::kRead);
  EXPECT_EQ(Read(in, 3), bytes.substr(0, 3));
  EXPECT_EQ(Read(in, 100), bytes.substr(3));
}

TEST_F(FileStreamTest, GivesZeroAtTheEnd) {
  files_.Put(u"/x", "ab");
  FileStream stream(files_, u"/x", OpenFlags::kRead);
  EXPECT_EQ(Read(stream, 2), "ab");
  char byte;
  EXPECT_EQ(stream.Read(&byte, 1), 0);
}

TEST_F(FileStreamTest, ThatCannotBeOpenedTransfersNothing) {
  FileStream stream(files_, u"PRN1:", OpenFlags::kRead);
  EXPECT_FALSE(stream.IsOpen());
  char byte = '?';
  EXPECT_EQ(stream.Read(&byte, 1), 0);
  EXPECT_EQ(byte, '?');
  EXPECT_EQ(stream.Write("a", 1), 0);
  EXPECT_EQ(stream.Size(), std::nullopt);
  EXPECT_EQ(stream.ReadWhole(), std::nullopt);
  EXPECT_FALSE(stream.ReadAll(&byte, 1));
  EXPECT_FALSE(stream.WriteAll("a"));
  stream.Close();
}

TEST_F(FileStreamTest, AppendsToWhatIsThere) {
  files_.Put(u"/DriverUnloadSuccessful", "old");
  for (int i = 0; i < 2; ++i) {
    FileStream stream(files_, u"\\DriverUnloadSuccessful", OpenFlags::kWrite | OpenFlags::kAppend);
    EXPECT_EQ(stream.Write("\0\1\2\3", 4), 4);
  }
  EXPECT_EQ(files_.Get(u"/DriverUnloadSuccessful"), std::string("old\0\1\2\3\0\1\2\3", 11));
}

TEST_F(FileStreamTest, TruncatesWhenAsked) {
  files_.Put(u"/x", "a longer text");
  FileStream stream(files_, u"/x", OpenFlags::kWrite | OpenFlags::kTruncate);
  EXPECT_TRUE(stream.WriteAll("new"));
  EXPECT_TRUE(stream.Complete());
  EXPECT_EQ(files_.Get(u"/x"), "new");
  stream.Close();
  EXPECT_FALSE(stream.Complete());
}

TEST_F(FileStreamTest, ReadsTheWholeFile) {
  files_.Put(u"/x", "all of it");
  files_.Put(u"/empty", "");
  EXPECT_EQ(FileStream(files_, u"/x", OpenFlags::kRead).ReadWhole(), "all of it");
  EXPECT_EQ(FileStream(files_, u"/empty", OpenFlags::kRead).ReadWhole(), "");
}

TEST_F(FileStreamTest, GivesNothingWhenTheWholeComesShort) {
  files_.Put(u"/x", "all of it");
  files_.ShortenRead(1, 8);
  EXPECT_EQ(FileStream(files_, u"/x", OpenFlags::kRead).ReadWhole(), std::nullopt);
  files_.PutDirectory(u"/folder");
  EXPECT_EQ(FileStream(files_, u"/folder", OpenFlags::kRead).ReadWhole(), std::nullopt);
}

TEST_F(FileStreamTest, GivesNothingWhenTheSizeCantBeHad) {
  files_.Put(u"/x", "all of it");
  files_.FailSizes(true);
  FileStream stream(files_, u"/x", OpenFlags::kRead);
  EXPECT_EQ(stream.Size(), std::nullopt);
  EXPECT_EQ(stream.ReadWhole(), std::nullopt);
}

TEST_F(FileStreamTest, GivesNothingWhenTheFileIsTooLargeForTheMemory) {
  HugeFileSystem files(~std::uint64_t{0});
  EXPECT_EQ(FileStream(files, u"/x", OpenFlags::kRead).ReadWhole(), std::nullopt);
}

TEST_F(FileStreamTest, ReadsNoFileWholeThatIsLargerThanTheLargest) {
  HugeFileSystem files;
  EXPECT_EQ(FileStream(files, u"/x", OpenFlags::kRead).ReadWhole(), std::nullopt);
}

TEST_F(FileStreamTest, ReportsHowMuchOfAWriteWasTaken) {
  files_.FillDiskAfter(3);
  FileStream stream(files_, u"/x", OpenFlags::kWrite);
  EXPECT_EQ(stream.Write("12345", 5), 3);
  EXPECT_EQ(stream.Write("45", 2), 0);
  EXPECT_FALSE(stream.WriteAll("45"));
  EXPECT_EQ(files_.Get(u"/x"), "123");
}

TEST_F(FileStreamTest, TransfersNothingOnceClosed) {
  files_.Put(u"/x", "text");
  FileStream stream(files_, u"/x", OpenFlags::kRead | OpenFlags::kWrite);
  stream.Close();
  stream.Close();
  EXPECT_FALSE(stream.IsOpen());
  char byte;
  EXPECT_EQ(stream.Read(&byte, 1), 0);
  EXPECT_EQ(stream.Write("a", 1), 0);
  EXPECT_EQ(stream.Size(), std::nullopt);
  EXPECT_EQ(stream.ReadWhole(), std::nullopt);
  EXPECT_FALSE(stream.ReadAll(&byte, 1));
  EXPECT_FALSE(stream.WriteAll("a"));
  EXPECT_EQ(files_.Get(u"/x"), "text");
}

TEST_F(FileStreamTest, TakesALengthBelowOneForNothing) {
  files_.Put(u"/x", "text");
  FileStream stream(files_, u"/x", OpenFlags::kRead | OpenFlags::kWrite);
  char byte;
  EXPECT_EQ(stream.Read(&byte, 0), 0);
  EXPECT_EQ(stream.Read(&byte, -1), 0);
  EXPECT_EQ(stream.Write("a", -1), 0);
  EXPECT_EQ(files_.Get(u"/x"), "text");
}

}  // namespace
}  // namespace valmere::test
