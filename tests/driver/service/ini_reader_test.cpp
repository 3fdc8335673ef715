#include "driver/service/ini_reader.h"

#include <gtest/gtest.h>

#include <string>

#include "tests/support/memory_file_system.h"

namespace valmere::test {
namespace {

constexpr platform::WidePathView kPath = u"\\windows\\version.ini";

class IniReaderTest : public ::testing::Test {
 protected:
  std::string Value(std::string_view file, const std::string& key) {
    files_.Put(kPath, file);
    return ReadIniValue(files_, platform::WidePath(kPath), key);
  }

  MemoryFileSystem files_;
};

TEST_F(IniReaderTest, ReadsAValueInQuotes) {
  const char* file = "[Version]\r\nOSVersion=\"8.3.6250.0\"\r\nOSBuildNumber=\"6250\"\r\n";
  EXPECT_EQ(Value(file, "OSVersion"), "8.3.6250.0");
  EXPECT_EQ(Value(file, "OSBuildNumber"), "6250");
}

TEST_F(IniReaderTest, ReadsALastLineWithoutALineFeed) {
  EXPECT_EQ(Value("a=\"1\"\nOSVersion=\"2\"", "OSVersion"), "2");
}

TEST_F(IniReaderTest, TakesTheFirstLineThatHoldsTheKeyAnywhere) {
  EXPECT_EQ(Value("MyQtVersion=\"0\"\nQtVersion=\"1\"\n", "QtVersion"), "0");
  EXPECT_EQ(Value("; QtVersion below\nQtVersion=\"1\"\n", "QtVersion"), "Error");
  EXPECT_EQ(Value("x=\"QtVersion\"\nQtVersion=\"1\"\n", "QtVersion"), "Error");
}

TEST_F(IniReaderTest, LooksForTheEqualsSignFromTheKeyOn) {
  EXPECT_EQ(Value("\"a\"=\"b\" QtVersion=\"1\"\n", "QtVersion"), "1");
  EXPECT_EQ(Value("QtVersion \"0\" = \"1\"\n", "QtVersion"), "1");
}

TEST_F(IniReaderTest, AllowsBlanksAroundTheEqualsSign) {
  EXPECT_EQ(Value("QtVersion = \"1.0\"\n", "QtVersion"), "1.0");
}

TEST_F(IniReaderTest, TakesTheRestOfALineWithoutAClosingQuote) {
  EXPECT_EQ(Value("QtVersion=\"1.0 beta\r\n", "QtVersion"), "1.0 beta");
  EXPECT_EQ(Value("QtVersion=\"1.0\" ; \"final\" \n", "QtVersion"), "1.0\" ; \"final\" ");
}

TEST_F(IniReaderTest, CutsTheWholeTrailingRunOfQuotesAndBackslashes) {
  EXPECT_EQ(Value("QtVersion=\"1.2\\\\\"\n", "QtVersion"), "1.2");
  EXPECT_EQ(Value("QtVersion=\"1.2\"\\\"\\\r\r\n", "QtVersion"), "1.2");
  EXPECT_EQ(Value("QtVersion=\"1\\\"2\"\n", "QtVersion"), "1\\\"2");
}

TEST_F(IniReaderTest, AnswersErrorToALineWithoutAValue) {
  EXPECT_EQ(Value("QtVersion=\"\"\n", "QtVersion"), "Error");
  EXPECT_EQ(Value("QtVersion=\"\\\"\r\n", "QtVersion"), "Error");
  EXPECT_EQ(Value("QtVersion=\"\n", "QtVersion"), "Error");
  EXPECT_EQ(Value("QtVersion=1.0\n", "QtVersion"), "Error");
  EXPECT_EQ(Value("QtVersion \"1.0\"\n", "QtVersion"), "Error");
  EXPECT_EQ(Value("\"QtVersion\" 1.0=\n", "QtVersion"), "Error");
  EXPECT_EQ(Value("QtVersion\n=\"1\"\n", "QtVersion"), "Error");
}

TEST_F(IniReaderTest, AnswersErrorWhenNoLineHoldsTheKey) {
  EXPECT_EQ(Value("", "QtVersion"), "Error");
  EXPECT_EQ(Value("\n\n", "QtVersion"), "Error");
  EXPECT_EQ(Value("qtversion=\"1\"\nQt\nVersion=\"1\"\n", "QtVersion"), "Error");
}

TEST_F(IniReaderTest, AnswersErrorWhenTheFileCannotBeRead) {
  const platform::WidePath path(kPath);
  EXPECT_EQ(ReadIniValue(files_, path, "QtVersion"), "Error");
  files_.PutDirectory(path);
  EXPECT_EQ(ReadIniValue(files_, path, "QtVersion"), "Error");
  files_.PutUnopenable(path);
  EXPECT_EQ(ReadIniValue(files_, path, "QtVersion"), "Error");
  files_.ShortenRead(1, 13);
  EXPECT_EQ(Value("QtVersion=\"1\"\n", "QtVersion"), "Error");
}

TEST_F(IniReaderTest, KeepsNulAndEightBitBytes) {
  EXPECT_EQ(Value(std::string_view("\0\xFF\nQtVersion=\"1\0\x80\"\n", 18), "QtVersion"),
            std::string("1\0\x80", 3));
}

TEST_F(IniReaderTest, ReadsTheFileAnewForEachKey) {
  EXPECT_EQ(Value("QtVersion=\"1\"\n", "QtVersion"), "1");
  EXPECT_EQ(Value("QtVersion=\"2\"\n", "QtVersion"), "2");
}

}  // namespace
}  // namespace valmere::test
