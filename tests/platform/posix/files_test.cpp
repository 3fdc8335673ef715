// What only this system's files can be.
#include <sys/stat.h>
#include <unistd.h>

#include "tests/platform/files_fixture.h"
#include "tests/platform/posix/file_size_limit.h"

namespace valmere::test {
using namespace platform;
namespace {

void MakeLink(const std::string& path, const std::string& target) {
  ASSERT_EQ(symlink(target.c_str(), path.c_str()), 0);
}

TEST_F(DeviceFiles, AreNoPipesAndOpeningOneDoesNotHang) {
  ASSERT_EQ(mkfifo(root_.At("root/pipe").c_str(), 0644), 0);
  EXPECT_EQ(Open(u"\\pipe", kRead), nullptr);
  EXPECT_EQ(Open(u"\\pipe", kWrite), nullptr);
  EXPECT_FALSE(files_->Exists(u"\\pipe"));
}

TEST_F(DeviceFiles, NamedLikeDevicesStayAsTheyAre) {
  root_.Put("root/PRN2:", "a file all the same");
  EXPECT_EQ(Open(u"PRN2:", kRead), nullptr);
  EXPECT_EQ(Open(u"PRN2:", kWrite | OpenFlags::kTruncate), nullptr);
  EXPECT_FALSE(files_->Exists(u"PRN2:"));
  EXPECT_FALSE(files_->Remove(u"PRN2:"));
  EXPECT_EQ(root_.Get("root/PRN2:"), "a file all the same");
}

TEST_F(DeviceFiles, AreNotReachedByLinksOutOfTheRoot) {
  root_.MakeFolder("outside");
  root_.Put("outside/f", "outside");
  MakeLink(root_.At("root/file"), root_.At("outside/f"));
  MakeLink(root_.At("root/folder"), root_.At("outside"));
  MakeLink(root_.At("root/relative"), "../outside");
  MakeLink(root_.At("root/dangling"), root_.At("outside/new"));
  for (WidePathView path : {u"\\file", u"\\folder\\f", u"\\relative\\f"}) {
    EXPECT_EQ(Open(path, kRead), nullptr) << NarrowPath(path);
    EXPECT_EQ(Open(path, kWrite | OpenFlags::kTruncate), nullptr) << NarrowPath(path);
    EXPECT_FALSE(files_->Exists(path)) << NarrowPath(path);
  }
  EXPECT_FALSE(files_->Remove(u"\\folder\\f"));
  EXPECT_EQ(Open(u"\\dangling", kWrite), nullptr);
  EXPECT_FALSE(root_.Has("outside/new"));
  EXPECT_EQ(root_.Get("outside/f"), "outside");
}

TEST_F(DeviceFiles, TakeAsMuchOfAWriteAsFits) {
  const test::FileSizeLimit limit(1000);
  const auto file = Open(u"\\f", kWrite);
  EXPECT_EQ(Write(file, std::string(600, 'a')), 600u);
  EXPECT_EQ(Write(file, std::string(600, 'b')), 400u);
  EXPECT_EQ(Write(file, "c"), 0u);
  EXPECT_EQ(root_.Get("root/f"), std::string(600, 'a') + std::string(400, 'b'));
}

}  // namespace
}  // namespace valmere::test
