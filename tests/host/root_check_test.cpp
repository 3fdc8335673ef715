// Whether it is found out that a root keeps no settings, and why.
#include "host/root/root_check.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <string>

#include "tests/host/other_user.h"
#include "tests/host/own_mounts.h"
#include "tests/host/subprocess.h"

namespace valmere::test {
using namespace host;
namespace {

namespace fs = std::filesystem;
using ::testing::IsEmpty;

class RootCheckTest : public ::testing::Test {
 protected:
  RootCheckTest() {
    fs::create_directories(store_);
    fs::permissions(folder_.Path(""), fs::perms{0755});
  }

  std::string Flaw() const { return WhySettingsAreLost(RootFolder(root_)).value_or(""); }
  std::string Lost(const std::string& flaw) const { return flaw + "; settings will not be kept"; }
  void Put(const std::string& path, std::size_t bytes) const {
    std::ofstream(path, std::ios::binary) << std::string(bytes, 'x');
  }

  test::TemporaryFolder folder_;
  const std::string root_ = folder_.Path("root");
  const std::string store_ = root_ + "/Store";
  const std::string file_ = store_ + "/ValmereProperties.ini";
};

TEST_F(RootCheckTest, FindsNothingWhereSettingsAreKeptAndLeavesNothingBehind) {
  EXPECT_THAT(Flaw(), IsEmpty());
  EXPECT_TRUE(fs::is_empty(store_));
  Put(file_, 100);
  EXPECT_THAT(Flaw(), IsEmpty());
  EXPECT_EQ(fs::file_size(file_), 100U);
}

TEST_F(RootCheckTest, RemovesATrialFileThatAKillHasLeft) {
  Put(store_ + "/.valmere-" + std::to_string(getpid()) + "-0.new", 3);
  EXPECT_THAT(Flaw(), IsEmpty());
  EXPECT_TRUE(fs::is_empty(store_));
}

TEST_F(RootCheckTest, MissesTheFolder) {
  fs::remove(store_);
  EXPECT_EQ(Flaw(), Lost(store_ + ": cannot be opened: No such file or directory"));
}

TEST_F(RootCheckTest, FollowsNoLink) {
  fs::remove(store_);
  fs::create_directories(folder_.Path("outside"));
  fs::create_directory_symlink(folder_.Path("outside"), store_);
  EXPECT_EQ(Flaw(), Lost(store_ + ": cannot be opened: Not a directory"));
  fs::remove(store_);
  fs::create_directories(store_);
  fs::create_symlink(folder_.Path("outside/file"), file_);
  EXPECT_EQ(Flaw(),
            Lost(file_ + ": cannot be read and written: Too many levels of symbolic links"));
}

TEST_F(RootCheckTest, FindsAFolderInThePlaceOfTheFile) {
  fs::create_directories(file_);
  EXPECT_EQ(Flaw(), Lost(file_ + ": cannot be read and written: Is a directory"));
}

TEST_F(RootCheckTest, FindsWhatBelongsToAnother) {
  Put(file_, 100);
  fs::permissions(file_, fs::perms{0444});
  {
    const test::OtherUser other;
    EXPECT_EQ(Flaw(), Lost(file_ + ": cannot be read and written: Permission denied"));
  }
  fs::remove(file_);
  fs::permissions(store_, fs::perms{0555});
  {
    const test::OtherUser other;
    EXPECT_EQ(Flaw(), Lost(store_ + ": cannot take a new file: Permission denied"));
  }
  fs::permissions(store_, fs::perms{0755});
}

TEST_F(RootCheckTest, FindsAPropertyFileThatCanOnlyBeWrittenInPlace) {
  if (getuid() != 0) GTEST_SKIP() << "only the superuser can be somebody else";
  const std::string in_place = "; it is written in place, and a kill may cost all settings";
  Put(file_, 100);
  fs::permissions(file_, fs::perms{0666});
  {
    const test::OtherUser other;
    EXPECT_EQ(Flaw(), file_ + ": its folder takes no new file" + in_place);
  }
  fs::permissions(store_, fs::perms{0777});
  {
    const test::OtherUser other;
    EXPECT_EQ(Flaw(), file_ + ": belongs to another user" + in_place);
  }
}

class MountedRootCheckTest : public RootCheckTest {
 protected:
  void SetUp() override {
    if (const std::string reason = test::WhyNothingCanBeMounted(); !reason.empty())
      GTEST_SKIP() << reason;
  }
};

TEST_F(MountedRootCheckTest, FindsAReadOnlyRoot) {
  const test::MountedFolder mounted(root_, "size=64k");
  fs::create_directories(store_);
  mounted.MakeReadOnly();
  EXPECT_EQ(Flaw(), Lost(store_ + ": cannot take a new file: Read-only file system"));
}

TEST_F(MountedRootCheckTest, FindsThatAPropertyFileCanNotBeWritten) {
  const test::MountedFolder mounted(root_, "size=64k");
  fs::create_directories(store_);
  Put(file_, 100);
  mounted.MakeReadOnly();
  EXPECT_EQ(Flaw(), Lost(file_ + ": cannot be read and written: Read-only file system"));
}

TEST_F(MountedRootCheckTest, FindsAFullDiskAndLeavesItAsItIs) {
  const test::MountedFolder mounted(root_, "size=64k");
  fs::create_directories(store_);
  mounted.Fill();
  EXPECT_EQ(Flaw(), Lost(store_ + ": cannot be written: No space left on device"));
  EXPECT_TRUE(fs::is_empty(store_));
}

TEST_F(MountedRootCheckTest, WantsRoomForThePropertyFileOnceMore) {
  const test::MountedFolder mounted(root_, "size=64k");
  fs::create_directories(store_);
  Put(file_, 40'000);
  EXPECT_EQ(Flaw(), Lost(store_ + ": cannot be written: No space left on device"));
  Put(file_, 24'000);
  EXPECT_THAT(Flaw(), IsEmpty());
}

}  // namespace
}  // namespace valmere::test
