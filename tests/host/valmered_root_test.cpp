// valmered and the folder that stands for the device's files: one that keeps nothing, one that
// goes, one that holds what the service refuses.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "tests/host/own_mounts.h"
#include "tests/host/valmered_fixture.h"

namespace valmere::test {
namespace {

namespace fs = std::filesystem;
using ::testing::AllOf;
using ::testing::Gt;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::IsSupersetOf;
using ::testing::Le;
using ::testing::StartsWith;

std::vector<std::string> FilesBelow(const std::string& folder) {
  std::vector<std::string> files;
  for (const auto& entry : fs::recursive_directory_iterator(folder))
    files.push_back(fs::relative(entry.path(), folder).string());
  return files;
}

class ValmeredRootTest : public ValmeredTest {
 protected:
  // As a service manager starts it.
  void StartNotified(const std::vector<std::string>& options = {}) {
    valmered_ = std::make_unique<Subprocess>(
        Command(options), std::vector{"NOTIFY_SOCKET=" + folder_.Path("notify")});
    ASSERT_EQ(valmered_->ReadLine(), "valmered: ready on " + socket_);
  }
  // Starts it and takes the first notice.
  void StartReady() {
    StartNotified();
    ASSERT_EQ(notices_.Next(), "READY=1\nSTATUS=" + Serving());
  }
  std::string Serving() const { return "serving on " + socket_; }
  std::string Gone() const {
    return root_ + ": no longer leads to the root that is served; settings will not be kept";
  }
  void ExpectTold(const std::string& line, const std::string& status) {
    EXPECT_EQ(valmered_->ReadErrorLine(), "valmered: " + line);
    EXPECT_EQ(notices_.Next(), "STATUS=" + status);
  }
  void ExpectGone() { ExpectTold(Gone(), Serving() + "; " + Gone()); }
  void ExpectBack() { ExpectTold(root_ + ": leads to the root that is served again", Serving()); }

  const NoticeSocket notices_{folder_.Path("notify")};
};

TEST_F(ValmeredRootTest, IsServedAlsoWhereSettingsAreNotKeptAndToldOf) {
  fs::remove(root_ + "/Store");
  StartNotified();
  const std::string flaw =
      root_ + "/Store: cannot be opened: No such file or directory; settings will not be kept";
  EXPECT_EQ(valmered_->ReadErrorLine(), "valmered: " + flaw);
  EXPECT_EQ(notices_.Next(), "READY=1\nSTATUS=" + Serving() + "; " + flaw);
  RawClient(socket_).Exchange("a");
}

TEST_F(ValmeredRootTest, IsServedWhereItIsReadOnly) {
  if (const std::string reason = WhyNothingCanBeMounted(); !reason.empty()) GTEST_SKIP() << reason;
  const MountedFolder mounted(root_, "size=64k");
  fs::create_directories(root_ + "/Store");
  mounted.MakeReadOnly();
  StartNotified({"--init-root"});
  EXPECT_THAT(notices_.Next(), HasSubstr("Read-only file system; settings will not be kept"));
  RawClient(socket_).Exchange("a");
}

TEST_F(ValmeredRootTest, IsServedWhereTheDiskIsFull) {
  if (const std::string reason = WhyNothingCanBeMounted(); !reason.empty()) GTEST_SKIP() << reason;
  const MountedFolder mounted(root_, "size=64k");
  fs::create_directories(root_ + "/Store");
  mounted.Fill();
  StartNotified();
  EXPECT_THAT(notices_.Next(), HasSubstr("No space left on device; settings will not be kept"));
  RawClient(socket_).Exchange("a");
}

TEST_F(ValmeredRootTest, HasAnExitCodeOfItsOwnWhenItCanNotBeMade) {
  fs::remove_all(root_);
  std::ofstream(root_) << "a file";
  Subprocess failed(Command());
  EXPECT_EQ(failed.Wait(), 5);
  EXPECT_THAT(failed.errors(), StartsWith("valmered: " + root_ + ": cannot make the root"));
}

TEST_F(ValmeredRootTest, HasAnExitCodeOfItsOwnWhenItCanNotBeGivenASkeleton) {
  if (const std::string reason = WhyNothingCanBeMounted(); !reason.empty()) GTEST_SKIP() << reason;
  const MountedFolder mounted(root_, "size=64k,nr_inodes=4");
  Subprocess failed(Command({"--init-root"}));
  EXPECT_EQ(failed.Wait(), 5);
  EXPECT_EQ(failed.errors(),
            "valmered: " + root_ + ": cannot be given a skeleton: No space left on device\n");
  EXPECT_TRUE(fs::is_empty(root_));
  EXPECT_FALSE(fs::exists(socket_));
}

TEST_F(ValmeredRootTest, IsGivenASkeletonWhenItIsEmpty) {
  fs::remove_all(root_);
  Start({"--init-root"});
  EXPECT_THAT(
      FilesBelow(root_),
      IsSupersetOf({"Store", "Store/ValmereProperties.ini", "windows", "windows/version.ini",
                    "boot", "boot/qtlibs_version.ini", "boot/qtcommon_version.ini"}));
  EXPECT_THAT(ContentOf(root_ + "/windows/version.ini"), HasSubstr("OSVersion="));
  Stop(SIGTERM);
}

TEST_F(ValmeredRootTest, IsGivenNothingWhenItHoldsSomething) {
  std::ofstream(root_ + "/mine") << "precious";
  Start({"--init-root"});
  EXPECT_FALSE(fs::exists(root_ + "/windows"));
  EXPECT_FALSE(fs::exists(root_ + "/boot"));
  EXPECT_EQ(ContentOf(root_ + "/mine"), "precious");
}

TEST_F(ValmeredRootTest, IsGivenNothingUnasked) {
  fs::remove_all(root_);
  Start();
  EXPECT_TRUE(fs::is_empty(root_));
}

TEST_F(ValmeredRootTest, IsMissedWhenItIsMovedAndToldOfWhenItIsBack) {
  StartReady();
  fs::rename(root_, folder_.Path("elsewhere"));
  ExpectGone();
  fs::create_directories(root_);
  fs::remove(root_);
  fs::rename(folder_.Path("elsewhere"), root_);
  ExpectBack();
  RawClient(socket_).Exchange("a");
}

TEST_F(ValmeredRootTest, IsFoundAgainBehindALink) {
  StartReady();
  fs::rename(root_, folder_.Path("elsewhere"));
  ExpectGone();
  fs::create_directory_symlink(folder_.Path("elsewhere"), root_);
  ExpectBack();
}

TEST_F(ValmeredRootTest, IsMissedWhenAFolderThatItLiesInIsMoved) {
  const std::string outer = folder_.Path("a/b");
  fs::create_directories(outer + "/c/root/Store");
  const NoticeSocket notices(folder_.Path("notify2"));
  Subprocess valmered({VALMERED, "--root", outer + "/c/root", "--socket", socket_},
                      {"NOTIFY_SOCKET=" + folder_.Path("notify2")});
  EXPECT_EQ(notices.Next(), "READY=1\nSTATUS=" + Serving());
  fs::rename(outer, folder_.Path("a/moved"));
  EXPECT_THAT(notices.Next(), HasSubstr("; " + outer + "/c/root: no longer leads"));
  fs::rename(folder_.Path("a/moved"), outer);
  EXPECT_EQ(notices.Next(), "STATUS=" + Serving());
}

TEST_F(ValmeredRootTest, IsMissedWhenItIsRemoved) {
  std::ofstream(root_ + "/file") << "x";
  StartReady();
  fs::remove_all(root_);
  ExpectGone();
  // Another folder of that name is not the one that is served.
  fs::create_directories(root_ + "/Store");
  valmered_->Signal(SIGTERM);
  EXPECT_EQ(notices_.Next(), "STOPPING=1");
  EXPECT_EQ(valmered_->Wait(), 0);
  EXPECT_THAT(valmered_->errors(), IsEmpty());
}

TEST_F(ValmeredRootTest, IsMissedWhenAnotherFileSystemCoversIt) {
  if (const std::string reason = WhyNothingCanBeMounted(); !reason.empty()) GTEST_SKIP() << reason;
  StartReady();
  {
    const MountedFolder mounted(root_, "size=64k");
    ExpectGone();
  }
  ExpectBack();
}

TEST_F(ValmeredRootTest, IsNotMissedWhileFilesComeAndGoInItAndBesideIt) {
  StartReady();
  fs::create_directories(folder_.Path("beside"));
  std::ofstream(root_ + "/Store/file") << "x";
  fs::rename(root_ + "/Store/file", root_ + "/Store/other");
  fs::rename(folder_.Path("beside"), folder_.Path("beside2"));
  RawClient(socket_).Exchange("a");
  Stop(SIGTERM);
}

TEST_F(ValmeredRootTest, IsTheWorkingFolder) {
  Start();
  EXPECT_EQ(fs::read_symlink("/proc/" + std::to_string(valmered_->process()) + "/cwd"), root_);
}

TEST_F(ValmeredRootTest, AndSocketMayBeNamedFromWhereItIsStarted) {
  valmered_ = std::make_unique<Subprocess>(std::vector<std::string>{
      "/bin/sh", "-c", "cd \"$1\" && exec \"$0\" --root root --socket run/PRN1", VALMERED,
      folder_.Path("")});
  EXPECT_EQ(valmered_->ReadLine(), "valmered: ready on " + socket_);
  RawClient(socket_).Exchange("a");
  Stop(SIGTERM);
  EXPECT_FALSE(fs::exists(socket_));
}

TEST_F(ValmeredRootTest, HoldsALogOfTheLengthThatIsWanted) {
  constexpr std::uintmax_t kLength = 65536;
  Start({"--max-log", "64KiB"});
  const RawClient client(socket_);
  const std::string log = root_ + "/Store/ValmereLog.txt";
  // Each has a line, for it names no property.
  const std::string set = FrameOf(SetText({kOwnComponent.component, "none:" + root_}, "1"));
  RepeatUntil([&] { return fs::exists(log + ".1"); },
              [&] {
                client.Send(set + FrameOf(GetText(kOwnComponent)));
                EXPECT_EQ(client.ReceiveFrame(), OwnComponentText());
              });
  EXPECT_THAT(fs::file_size(log + ".1"), AllOf(Gt(kLength / 2), Le(kLength)));
  EXPECT_LE(fs::file_size(log), kLength);
  Stop(SIGTERM);
}

TEST_F(ValmeredRootTest, KeepsAPropertyFileThatIsRefused) {
  const std::string file = root_ + "/Store/ValmereProperties.ini";
  std::ofstream(file) << "damaged";
  Start();
  EXPECT_THAT(valmered_->ReadErrorLine(),
              StartsWith("valmered: " + file + ": refused, its checksum is wrong; kept as "));
  EXPECT_EQ(ContentOf(file + ".refused"), "damaged");
  Stop(SIGTERM);
}

}  // namespace
}  // namespace valmere::test
