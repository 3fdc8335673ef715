// A log has a bound.
#include <sys/stat.h>

#include <cstdlib>
#include <memory>
#include <string>

#include "tests/platform/files_fixture.h"
#include "tests/platform/posix/standard_error_of.h"

namespace valmere::test {
using namespace platform;
namespace {

using test::StandardErrorOf;

class BoundedFiles : public DeviceFiles {
 protected:
  BoundedFiles() {
    setenv("VALMERE_MAX_LOG", "10", 1);
    bounded_ = MakeDeviceFileSystem();
  }
  ~BoundedFiles() override { unsetenv("VALMERE_MAX_LOG"); }

  static constexpr OpenFlags kLog = kWrite | OpenFlags::kAppend | OpenFlags::kBounded;
  std::shared_ptr<FileSystem> bounded_;
};

TEST_F(BoundedFiles, GoOnUnderAnotherNameWhenTheyBecomeTooLong) {
  const auto log = bounded_->Open(u"\\log", kLog);
  EXPECT_EQ(Write(log, "12345"), 5u);
  EXPECT_EQ(Write(log, "67890"), 5u);
  EXPECT_FALSE(root_.Has("root/log.1"));
  EXPECT_EQ(Write(log, "abc"), 3u);
  EXPECT_EQ(root_.Get("root/log"), "abc");
  EXPECT_EQ(root_.Get("root/log.1"), "1234567890");
  EXPECT_EQ(Write(log, "defghijk"), 8u);
  EXPECT_EQ(root_.Get("root/log"), "defghijk");
  EXPECT_EQ(root_.Get("root/log.1"), "abc") << "one older one is kept";
}

TEST_F(BoundedFiles, ThatAreTooLongAlreadyGoOnUnderAnotherNameAtTheFirstWrite) {
  root_.Put("root/log", "far too long for it");
  const auto log = bounded_->Open(u"\\log", kLog);
  EXPECT_EQ(root_.Get("root/log"), "far too long for it");
  EXPECT_EQ(Write(log, "a"), 1u);
  EXPECT_EQ(root_.Get("root/log"), "a");
  EXPECT_EQ(root_.Get("root/log.1"), "far too long for it");
}

TEST_F(BoundedFiles, TakeNothingThatIsTooLongByItself) {
  const auto log = bounded_->Open(u"\\log", kLog);
  EXPECT_EQ(Write(log, "12345678901"), 0u);
  EXPECT_EQ(Write(log, "1234567890"), 10u);
}

TEST_F(BoundedFiles, TakeNothingWhileTheyCantBeginAnew) {
  root_.MakeFolder("root/log.1");
  root_.MakeFolder("root/log.1/folder");
  const StandardErrorOf said;
  const auto log = bounded_->Open(u"\\log", kLog);
  EXPECT_EQ(Write(log, "1234567890"), 10u);
  for (int i = 0; i < 3; ++i)
    EXPECT_EQ(Write(log, "a"), 0u);
  EXPECT_EQ(root_.Get("root/log"), "1234567890");
  EXPECT_EQ(said.text(), "valmere: cannot write " + root_.At("root/log") + ": Is a directory\n");
  root_.Remove("root/log.1/folder");
  root_.Remove("root/log.1");
  EXPECT_EQ(Write(log, "a"), 1u);
}

TEST_F(BoundedFiles, KeepTheirModeAndBeginAnewWhenTheyWereRemoved) {
  const auto log = bounded_->Open(u"\\log", kLog);
  ASSERT_EQ(chmod(root_.At("root/log").c_str(), 0604), 0);
  EXPECT_EQ(Write(log, "1234567890"), 10u);
  root_.Remove("root/log");
  EXPECT_EQ(Write(log, "a"), 1u);
  EXPECT_EQ(root_.Get("root/log"), "a");
  struct stat status {};
  ASSERT_EQ(stat(root_.At("root/log").c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777, 0604u);
}

TEST_F(BoundedFiles, GoOnInTheOneThatAnotherHasBegun) {
  const auto first = bounded_->Open(u"\\log", kLog);
  const auto second = bounded_->Open(u"\\log", kLog);
  EXPECT_EQ(Write(first, "1234567890"), 10u);
  EXPECT_EQ(Write(first, "abc"), 3u);
  EXPECT_EQ(Write(second, "1234567890"), 10u) << "into the older one, which it does not know";
  EXPECT_EQ(Write(second, "defg"), 4u);
  EXPECT_EQ(root_.Get("root/log"), "abcdefg");
}

TEST_F(BoundedFiles, OthersThatAreAppendedToAreNot) {
  const auto marker = bounded_->Open(u"\\marker", kWrite | OpenFlags::kAppend);
  EXPECT_EQ(Write(marker, "12345678901234567890"), 20u);
  EXPECT_FALSE(root_.Has("root/marker.1"));
}

TEST_F(BoundedFiles, HaveTheirBoundFromANumberAlone) {
  setenv("VALMERE_MAX_LOG", "10 bytes", 1);
  const auto log = MakeDeviceFileSystem()->Open(u"\\log", kLog);
  EXPECT_EQ(Write(log, "12345678901"), 11u);
}

}  // namespace
}  // namespace valmere::test
