// What only this system's files can be.
#include "tests/platform/files_fixture.h"

namespace valmere::test {
using namespace platform;
namespace {

TEST_F(DeviceFiles, HaveNoSideStreams) {
  root_.Put("root/f", "abc");
  for (WidePathView path : {u"\\f:side", u"\\f::$DATA", u"\\f:"}) {
    EXPECT_EQ(Open(path, kRead), nullptr);
    EXPECT_EQ(Open(path, kWrite), nullptr);
    EXPECT_FALSE(files_->Exists(path));
    EXPECT_FALSE(files_->Remove(path));
  }
  EXPECT_EQ(root_.Get("root/f"), "abc");
}

TEST_F(DeviceFiles, NamedLikeTheDesksDevicesAreFilesAllTheSame) {
  for (const char* name : {"NUL", "CON", "COM1", "nul.ini"}) {
    const WidePath path = u"\\" + WidenPath(name);
    EXPECT_FALSE(files_->Exists(path)) << name;
    EXPECT_EQ(Write(Open(path, kWrite), "kept"), 4u) << name;
    EXPECT_EQ(root_.Get(std::string("root/") + name), "kept") << name;
    EXPECT_TRUE(files_->Remove(path)) << name;
  }
}

TEST_F(DeviceFiles, KeepBlanksAndDotsAtTheEndsOfTheirNames) {
  root_.Put("root/f", "plain");
  EXPECT_EQ(Read(u"\\f."), "(null)");
  EXPECT_EQ(Read(u"\\f "), "(null)");
  EXPECT_EQ(Write(Open(u"\\f.", kWrite), "dot"), 3u);
  EXPECT_EQ(Read(u"\\f"), "plain");
  EXPECT_EQ(Read(u"\\f."), "dot");
}

TEST_F(DeviceFiles, AreFoundInEitherCase) {
  root_.MakeFolder("root/Windows");
  root_.Put("root/Windows/Version.ini", "abc");
  EXPECT_EQ(Read(u"\\windows\\version.INI"), "abc");
}

}  // namespace
}  // namespace valmere::test
