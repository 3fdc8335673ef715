#include "persist/file/property_file.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "tests/persist/file/property_file_samples.h"
#include "tests/support/memory_file_system.h"

namespace valmere::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Pair;

class PropertyFileTest : public ::testing::Test {
 protected:
  PropertyFileResult ReadBytes(std::string_view bytes) {
    files_.Put(kPropertyFile, bytes);
    map_.clear();
    return ReadPropertyFile(files_, kPropertyFile, map_);
  }
  PropertyFileResult ReadBody(const std::string& body) { return ReadBytes(WithTrailer(body)); }

  MemoryFileSystem files_;
  PropertyMap map_;
};

TEST_F(PropertyFileTest, ReadsTheGoldenFile) {
  EXPECT_EQ(ReadBytes("a|b=1\n\xBD\xA7"), PropertyFileResult::kRead);
  EXPECT_THAT(map_, ElementsAre(Pair("a", PropertyLine{"a|b", "1"})));
}

TEST_F(PropertyFileTest, TakesTheLineApartAtTheFirstBarAndTheFirstEqualsSignAfterIt) {
  EXPECT_EQ(ReadBody("a|b=c=d\n"), PropertyFileResult::kRead);
  EXPECT_THAT(map_, ElementsAre(Pair("a", PropertyLine{"a|b", "c=d"})));
  EXPECT_EQ(ReadBody("a=b|c=d\n"), PropertyFileResult::kRead);
  EXPECT_THAT(map_, ElementsAre(Pair("a=b", PropertyLine{"a=b|c", "d"})));
  EXPECT_EQ(ReadBody("a|b|c=d|e\n"), PropertyFileResult::kRead);
  EXPECT_THAT(map_, ElementsAre(Pair("a", PropertyLine{"a|b|c", "d|e"})));
  EXPECT_EQ(ReadBody("a|=\n"), PropertyFileResult::kRead);
  EXPECT_THAT(map_, ElementsAre(Pair("a", PropertyLine{"a|", ""})));
}

TEST_F(PropertyFileTest, TrimsAndTranslatesNothing) {
  EXPECT_EQ(ReadBody(" a |b = 1 \r\n"), PropertyFileResult::kRead);
  EXPECT_THAT(map_, ElementsAre(Pair(" a ", PropertyLine{" a |b ", " 1 \r"})));
}

TEST_F(PropertyFileTest, KeepsNulAndEightBitBytes) {
  const std::string body("k\0\xFE|n\0=\0\x80\xFF\n", 11);
  EXPECT_EQ(ReadBody(body), PropertyFileResult::kRead);
  EXPECT_THAT(
      map_,
      ElementsAre(Pair(std::string("k\0\xFE", 3),
                       PropertyLine{std::string("k\0\xFE|n\0", 6), std::string("\0\x80\xFF", 3)})));
}

TEST_F(PropertyFileTest, OrdersKeysByTheirBytes) {
  EXPECT_EQ(ReadBody("\x80|=3\nb|=2\nB|=1\n"), PropertyFileResult::kRead);
  EXPECT_THAT(map_,
              ElementsAre(Pair("B", PropertyLine{"B|", "1"}), Pair("b", PropertyLine{"b|", "2"}),
                          Pair("\x80", PropertyLine{"\x80|", "3"})));
}

TEST_F(PropertyFileTest, LetsALaterLineOfAKeyWin) {
  EXPECT_EQ(ReadBody("a|old=1\nb|=2\na|new=3\n"), PropertyFileResult::kRead);
  EXPECT_THAT(
      map_, ElementsAre(Pair("a", PropertyLine{"a|new", "3"}), Pair("b", PropertyLine{"b|", "2"})));
}

TEST_F(PropertyFileTest, AddsToTheMapThatItIsGiven) {
  files_.Put(kPropertyFile, WithTrailer("b|=2\n"));
  map_["a"] = {"a|", "1"};
  map_["b"] = {"b|", "1"};
  EXPECT_EQ(ReadPropertyFile(files_, kPropertyFile, map_), PropertyFileResult::kRead);
  EXPECT_THAT(map_,
              ElementsAre(Pair("a", PropertyLine{"a|", "1"}), Pair("b", PropertyLine{"b|", "2"})));
}

TEST_F(PropertyFileTest, TakesTheGoodLinesAroundAMalformedOne) {
  for (const char* bad : {"|x=1", "ab=1", "a|b", "a=1|b", "", "|"}) {
    const std::string body = std::string("k|m=1\n") + bad + "\nl|m=2\n";
    EXPECT_EQ(ReadBody(body), PropertyFileResult::kMalformedLine) << bad;
    EXPECT_THAT(
        map_, ElementsAre(Pair("k", PropertyLine{"k|m", "1"}), Pair("l", PropertyLine{"l|m", "2"})))
        << bad;
  }
}

TEST_F(PropertyFileTest, PassesOverALastLineWithoutItsLineFeed) {
  EXPECT_EQ(ReadBody("a|b=1\nc|d=2"), PropertyFileResult::kRead);
  EXPECT_THAT(map_, ElementsAre(Pair("a", PropertyLine{"a|b", "1"})));
  EXPECT_EQ(ReadBody("no line at all"), PropertyFileResult::kRead);
  EXPECT_THAT(map_, IsEmpty());
}

TEST_F(PropertyFileTest, RefusesAFileOfTwoBytesOrFewer) {
  EXPECT_EQ(ReadBytes(""), PropertyFileResult::kTooShort);
  EXPECT_EQ(ReadBytes("a"), PropertyFileResult::kTooShort);
  EXPECT_EQ(ReadBytes("\xFF\xFF"), PropertyFileResult::kTooShort);
}

TEST_F(PropertyFileTest, LooksAtThreeBytesLikeAtAnyOthers) {
  EXPECT_EQ(ReadBytes("abc"), PropertyFileResult::kWrongChecksum);
  EXPECT_EQ(ReadBody("x"), PropertyFileResult::kRead);
  EXPECT_EQ(ReadBody("\n"), PropertyFileResult::kMalformedLine);
  EXPECT_THAT(map_, IsEmpty());
}

TEST_F(PropertyFileTest, RefusesAChecksumWithItsBytesSwapped) {
  EXPECT_EQ(ReadBytes("a|b=1\n\xA7\xBD"), PropertyFileResult::kWrongChecksum);
  EXPECT_THAT(map_, IsEmpty());
}

TEST_F(PropertyFileTest, RefusesEveryTruncationWhole) {
  const std::string file = WithTrailer(ManyLines(8));
  for (std::size_t size = 0; size < file.size(); ++size) {
    const PropertyFileResult result = ReadBytes(file.substr(0, size));
    ASSERT_TRUE(result == PropertyFileResult::kTooShort ||
                result == PropertyFileResult::kWrongChecksum)
        << size;
    ASSERT_THAT(map_, IsEmpty()) << size;
  }
}

TEST_F(PropertyFileTest, RefusesEverySingleFlippedBitWhole) {
  std::string file = WithTrailer(ManyLines(8));
  for (std::size_t bit = 0; bit < file.size() * 8; ++bit) {
    file[bit / 8] = static_cast<char>(file[bit / 8] ^ (1 << bit % 8));
    ASSERT_EQ(ReadBytes(file), PropertyFileResult::kWrongChecksum) << bit;
    ASSERT_THAT(map_, IsEmpty()) << bit;
    file[bit / 8] = static_cast<char>(file[bit / 8] ^ (1 << bit % 8));
  }
}

TEST_F(PropertyFileTest, ReportsAFileThatIsNotThere) {
  map_["a"] = {"a|", "1"};
  EXPECT_EQ(ReadPropertyFile(files_, kPropertyFile, map_), PropertyFileResult::kNotOpened);
  files_.PutUnopenable(kPropertyFile);
  EXPECT_EQ(ReadPropertyFile(files_, kPropertyFile, map_), PropertyFileResult::kNotOpened);
  EXPECT_THAT(map_, ElementsAre(Pair("a", PropertyLine{"a|", "1"})));
}

TEST_F(PropertyFileTest, ReportsAFolderInItsPlace) {
  files_.PutDirectory(kPropertyFile);
  EXPECT_EQ(ReadPropertyFile(files_, kPropertyFile, map_), PropertyFileResult::kNotReadable);
}

TEST_F(PropertyFileTest, RefusesAFileWhoseSizeCantBeHad) {
  files_.FailSizes(true);
  EXPECT_EQ(ReadBytes(WithTrailer("a|b=1\n")), PropertyFileResult::kNotReadable);
  EXPECT_THAT(map_, IsEmpty());
}

// Any file of the device may be named as the property file, a log of years too.
TEST_F(PropertyFileTest, RefusesAFileOfMoreThanSixteenMebibytes) {
  constexpr std::size_t kMost = std::size_t{16} << 20;
  std::string body = "a|=";
  body.resize(kMost - kPropertyFileTrailer - 1, 'v');
  EXPECT_EQ(ReadBody(body + "\n"), PropertyFileResult::kRead);
  EXPECT_EQ(ReadBody(body + "v\n"), PropertyFileResult::kNotReadable);
}

TEST_F(PropertyFileTest, RefusesAFileThatIsReadShort) {
  const std::string file = WithTrailer("a|b=1\n");
  for (std::size_t count = 0; count < file.size(); ++count) {
    files_.ShortenRead(1, count);
    EXPECT_EQ(ReadBytes(file), PropertyFileResult::kNotReadable) << count;
    EXPECT_THAT(map_, IsEmpty());
  }
}

TEST_F(PropertyFileTest, ReadsLinesOfAMebibyte) {
  const std::string value(1 << 20, 'v');
  EXPECT_EQ(ReadBody("a|b=" + value + "\nc|d=2\n"), PropertyFileResult::kRead);
  ASSERT_EQ(map_.size(), 2u);
  EXPECT_EQ(map_["a"].value, value);
}

TEST_F(PropertyFileTest, ReadsTensOfThousandsOfLines) {
  EXPECT_EQ(ReadBody(ManyLines(30'000)), PropertyFileResult::kRead);
  ASSERT_EQ(map_.size(), 30'000u);
  EXPECT_EQ(map_.rbegin()->second.value, "29999");
}

TEST(PropertyFileResult, HasAnEndOfASentenceForEachValue) {
  EXPECT_EQ(Describe(PropertyFileResult::kRead), "it was read");
  EXPECT_EQ(Describe(PropertyFileResult::kNotOpened), "it is missing or can't be opened");
  EXPECT_EQ(Describe(PropertyFileResult::kTooShort), "it is too short");
  EXPECT_EQ(Describe(PropertyFileResult::kNotReadable), "it can't be read to its end");
  EXPECT_EQ(Describe(PropertyFileResult::kWrongChecksum), "its checksum is wrong");
  EXPECT_EQ(Describe(PropertyFileResult::kMalformedLine), "it holds a malformed line");
}

}  // namespace
}  // namespace valmere::test
