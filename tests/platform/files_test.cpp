#include "platform/files.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <string_view>

#include "tests/platform/files_fixture.h"

namespace valmere::test {
using namespace platform;
namespace {

TEST_F(DeviceFiles, AreReadByEitherSeparator) {
  root_.MakeFolder("root/windows");
  root_.Put("root/windows/version.ini", "OSVersion=7\r\n");
  EXPECT_EQ(Read(u"\\windows\\version.ini"), "OSVersion=7\r\n");
  EXPECT_EQ(Read(u"/windows/version.ini"), "OSVersion=7\r\n");
  EXPECT_EQ(Read(u"\\windows/version.ini"), "OSVersion=7\r\n");
  EXPECT_EQ(Read(u"windows\\version.ini"), "OSVersion=7\r\n");
  EXPECT_EQ(Read(u"\\\\windows//\\version.ini"), "OSVersion=7\r\n");
  EXPECT_EQ(Read(u"\\.\\windows\\.\\version.ini"), "OSVersion=7\r\n");
}

TEST_F(DeviceFiles, CarryEveryByteUntranslated) {
  std::string bytes;
  for (int i = 0; i < 256; ++i)
    bytes += static_cast<char>(i);
  EXPECT_EQ(Write(Open(u"\\all", kWrite), bytes), bytes.size());
  EXPECT_EQ(root_.Get("root/all"), bytes);
  EXPECT_EQ(Read(u"\\all"), bytes);
}

TEST_F(DeviceFiles, HaveNamesBeyondAscii) {
  EXPECT_EQ(Write(Open(u"\\Gr\u00fc\u00dfe\u20ac\U0001f5a8", kWrite), "x"), 1u);
  EXPECT_EQ(root_.Get("root/Gr\xc3\xbc\xc3\x9f\x65\xe2\x82\xac\xf0\x9f\x96\xa8"), "x");
}

TEST_F(DeviceFiles, AreReadFromTheCurrentPosition) {
  root_.Put("root/f", "abcdef");
  const auto file = Open(u"\\f", kRead);
  ASSERT_TRUE(file);
  char buffer[8] = {};
  EXPECT_EQ(file->Size(), 6u);
  EXPECT_EQ(file->Read(buffer, 4), 4u);
  EXPECT_EQ(std::string_view(buffer, 4), "abcd");
  EXPECT_EQ(file->Read(buffer, 8), 2u);
  EXPECT_EQ(std::string_view(buffer, 2), "ef");
  EXPECT_EQ(file->Read(buffer, 8), 0u);
}

TEST_F(DeviceFiles, ForReadingMustExist) {
  EXPECT_EQ(Open(u"\\missing", kRead), nullptr);
  EXPECT_EQ(Open(u"\\missing", kRead | OpenFlags::kAtEnd), nullptr);
  EXPECT_EQ(Open(u"\\missing", kRead | kWrite), nullptr);
  EXPECT_EQ(Open(u"\\missing", kRead | kWrite | OpenFlags::kAtEnd), nullptr);
  EXPECT_FALSE(root_.Has("root/missing"));
}

TEST_F(DeviceFiles, ForWritingAreCreatedButFoldersAreNot) {
  EXPECT_NE(Open(u"\\a", kWrite), nullptr);
  EXPECT_NE(Open(u"\\b", kWrite | OpenFlags::kAppend), nullptr);
  for (const auto& [path, flags] : {std::pair(u"\\c", kWrite), std::pair(u"\\d", kRead | kWrite)}) {
    const auto file = Open(path, flags | OpenFlags::kTruncate);
    ASSERT_NE(file, nullptr);
    EXPECT_TRUE(file->Complete());
  }
  EXPECT_NE(Open(u"\\e", kRead | kWrite | OpenFlags::kAppend), nullptr);
  for (const char* name : {"a", "b", "c", "d", "e"})
    EXPECT_TRUE(root_.Has(std::string("root/") + name)) << name;
  EXPECT_EQ(Open(u"\\folder\\a", kWrite), nullptr);
  EXPECT_FALSE(root_.Has("root/folder"));
}

TEST_F(DeviceFiles, ForWritingAloneKeepTheirContentsAndStartAtTheFront) {
  root_.Put("root/f", "abcdef");
  EXPECT_EQ(Write(Open(u"\\f", kWrite), "XY"), 2u);
  EXPECT_EQ(root_.Get("root/f"), "XYcdef");
}

TEST_F(DeviceFiles, GrowWhenTheyAreAppendedTo) {
  for (int round = 1; round <= 2; ++round) {
    const auto marker = Open(u"\\DriverUnloadSuccessful", kWrite | OpenFlags::kAppend);
    EXPECT_EQ(Write(marker, std::string_view("\0\1\2\3", 4)), 4u);
  }
  EXPECT_EQ(root_.Get("root/DriverUnloadSuccessful"), std::string("\0\1\2\3\0\1\2\3", 8));
}

TEST_F(DeviceFiles, AreAppendedToWhereverTheEndHasMovedTo) {
  const auto first = Open(u"\\f", kWrite | OpenFlags::kAppend);
  const auto second = Open(u"\\f", OpenFlags::kAppend);
  EXPECT_EQ(Write(first, "1"), 1u);
  EXPECT_EQ(Write(second, "2"), 1u);
  EXPECT_EQ(Write(first, "3"), 1u);
  EXPECT_EQ(root_.Get("root/f"), "123");
}

TEST_F(DeviceFiles, AreEmptiedByTruncation) {
  root_.Put("root/f", "abcdef");
  const auto file = Open(u"\\f", kWrite | OpenFlags::kTruncate);
  EXPECT_EQ(Write(file, "XY"), 2u);
  EXPECT_TRUE(file->Complete());
  EXPECT_EQ(root_.Get("root/f"), "XY");
}

TEST_F(DeviceFiles, StartAtTheEndWhenAsked) {
  root_.Put("root/f", "abc");
  EXPECT_EQ(Write(Open(u"\\f", kRead | kWrite | OpenFlags::kAtEnd), "de"), 2u);
  EXPECT_EQ(root_.Get("root/f"), "abcde");
  char byte = 0;
  EXPECT_EQ(Open(u"\\f", kRead | OpenFlags::kAtEnd)->Read(&byte, 1), 0u);
}

TEST_F(DeviceFiles, AreReadAndWrittenThroughOneObject) {
  root_.Put("root/f", "abcdef");
  const auto file = Open(u"\\f", kRead | kWrite);
  ASSERT_TRUE(file);
  char buffer[2] = {};
  EXPECT_EQ(file->Read(buffer, 2), 2u);
  EXPECT_EQ(Write(file, "X"), 1u);
  EXPECT_EQ(file->Read(buffer, 2), 2u);
  EXPECT_EQ(std::string_view(buffer, 2), "de");
  EXPECT_EQ(root_.Get("root/f"), "abXdef");
}

TEST_F(DeviceFiles, TransferOnlyInTheDirectionAskedFor) {
  root_.Put("root/f", "abc");
  char byte = 0;
  EXPECT_EQ(Open(u"\\f", kWrite)->Read(&byte, 1), 0u);
  EXPECT_EQ(Write(Open(u"\\f", kRead), "X"), 0u);
  EXPECT_EQ(root_.Get("root/f"), "abc");
}

TEST_F(DeviceFiles, CantBeOpenedForNothing) {
  root_.Put("root/f", "abc");
  EXPECT_EQ(Open(u"\\f", OpenFlags::kAtEnd), nullptr);
  EXPECT_EQ(Open(u"\\f", OpenFlags::kTruncate), nullptr);
  EXPECT_EQ(Open(u"\\f", kRead | OpenFlags::kTruncate), nullptr);
  EXPECT_EQ(root_.Get("root/f"), "abc");
}

TEST_F(DeviceFiles, OfSizeAreWrittenAndReadWhole) {
  const std::string bytes(3'000'000, 'v');
  EXPECT_EQ(Write(Open(u"\\large", kWrite), bytes), bytes.size());
  EXPECT_EQ(Read(u"\\large"), bytes);
}

TEST_F(DeviceFiles, AreNoFolders) {
  root_.MakeFolder("root/Store");
  for (WidePathView path : {u"\\Store", u"\\Store\\", u"\\", u"", u"\\.."}) {
    EXPECT_EQ(Open(path, kRead), nullptr);
    EXPECT_EQ(Open(path, kWrite), nullptr);
  }
}

TEST_F(DeviceFiles, AreNotReachedThroughAFile) {
  root_.Put("root/f", "abc");
  EXPECT_EQ(Open(u"\\f\\g", kWrite), nullptr);
  EXPECT_FALSE(files_->Exists(u"\\f\\g"));
}

TEST_F(DeviceFiles, NamedLikeDevicesAreNeitherOpenedNorMade) {
  for (WidePathView path : {u"PRN1:", u"\\PRN1:", u"PRN1:\\"}) {
    EXPECT_EQ(Open(path, kRead), nullptr);
    EXPECT_EQ(Open(path, kRead | kWrite), nullptr);
    EXPECT_EQ(Open(path, kWrite | OpenFlags::kTruncate), nullptr);
    EXPECT_FALSE(files_->Exists(path));
    EXPECT_FALSE(files_->Remove(path));
  }
  EXPECT_FALSE(root_.Has("root/PRN1:"));
}

TEST_F(DeviceFiles, ExistWhenTheyCanBeFound) {
  root_.MakeFolder("root/Store");
  root_.Put("root/Store/f", "");
  EXPECT_TRUE(files_->Exists(u"/Store/f"));
  EXPECT_TRUE(files_->Exists(u"/Store"));
  EXPECT_TRUE(files_->Exists(u"\\"));
  EXPECT_FALSE(files_->Exists(u"/Store/g"));
  EXPECT_FALSE(files_->Exists(u"/Stores/f"));
}

TEST_F(DeviceFiles, AreRemovedOnce) {
  root_.MakeFolder("root/Store");
  root_.Put("root/Store/f", "abc");
  EXPECT_TRUE(files_->Remove(u"\\Store\\f"));
  EXPECT_FALSE(root_.Has("root/Store/f"));
  EXPECT_FALSE(files_->Remove(u"\\Store\\f"));
  EXPECT_FALSE(files_->Remove(u"\\Store"));
  EXPECT_FALSE(files_->Remove(u"\\"));
  EXPECT_TRUE(root_.Has("root/Store"));
}

TEST_F(DeviceFiles, StayBelowTheRootWhateverThePathSays) {
  root_.Put("secret", "outside");
  root_.Put("root/secret", "inside");
  root_.MakeFolder("root/Store");
  for (WidePathView path :
       {u"..\\secret", u"\\..\\secret", u"/../../../secret", u"\\Store\\..\\..\\secret",
        u"/Store/./.././../secret", u"\\..\\Store\\..\\secret", u"\\missing\\..\\..\\secret"})
    EXPECT_EQ(Read(path), "inside") << NarrowPath(path);
  const std::u16string absolute = WidenPath(root_.At("secret"));
  EXPECT_EQ(Read(absolute), "(null)");
  EXPECT_FALSE(files_->Exists(absolute));
  EXPECT_FALSE(files_->Remove(absolute));
  EXPECT_EQ(Open(u"C:\\secret", kWrite), nullptr);
  EXPECT_EQ(Read(u"\\...\\secret"), "(null)");
  EXPECT_EQ(root_.Get("secret"), "outside");
}

TEST_F(DeviceFiles, HaveNoNulInTheirNames) {
  root_.Put("root/f", "abc");
  const std::u16string path(u"\\f\0.ini", 7);
  EXPECT_EQ(Open(path, kRead), nullptr);
  EXPECT_EQ(Open(path, kWrite), nullptr);
  EXPECT_FALSE(files_->Exists(path));
  EXPECT_FALSE(files_->Remove(path));
}

TEST_F(DeviceFiles, LieUnderTheRootThatWasNamedLast) {
  root_.MakeFolder("second");
  root_.Put("root/f", "first");
  root_.Put("second/f", "second");
  root_.Use("second");
  EXPECT_EQ(Read(u"\\f"), "first");
  files_ = MakeDeviceFileSystem();
  EXPECT_EQ(Read(u"\\f"), "second");
}

TEST_F(DeviceFiles, AppearWhenTheRootDoes) {
  root_.Use("later");
  files_ = MakeDeviceFileSystem();
  EXPECT_EQ(Open(u"\\f", kWrite), nullptr);
  root_.MakeFolder("later");
  EXPECT_EQ(Write(Open(u"\\f", kWrite), "x"), 1u);
  EXPECT_EQ(root_.Get("later/f"), "x");
}

}  // namespace
}  // namespace valmere::test