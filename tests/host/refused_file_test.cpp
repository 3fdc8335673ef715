// What is kept of a property file that the service refuses.
#include "host/root/refused_file.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "persist/file/crc16.h"
#include "tests/host/other_user.h"
#include "tests/host/own_mounts.h"
#include "tests/host/subprocess.h"

namespace valmere::test {
using namespace host;
namespace {

namespace fs = std::filesystem;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

std::string Sealed(const std::string& body) {
  const unsigned crc = Crc16(body);
  return body + static_cast<char>(crc & 0xFF) + static_cast<char>(crc >> 8);
}

class RefusedFileTest : public ::testing::Test {
 protected:
  RefusedFileTest() {
    fs::create_directories(store_);
    fs::permissions(folder_.Path(""), fs::perms{0755});
    setenv("VALMERE_ROOT", root_.c_str(), 1);
  }
  ~RefusedFileTest() override { unsetenv("VALMERE_ROOT"); }

  // What is said.
  std::string Keep() const {
    ::testing::internal::CaptureStderr();
    KeepRefusedFile(RootFolder(root_));
    return ::testing::internal::GetCapturedStderr();
  }
  std::string Refused(const std::string& why) const {
    return "valmered: " + file_ + ": refused, " + why + "; ";
  }
  std::string Kept() const {
    return "kept as ValmereProperties.ini.refused; what can be read of it: valmere propfile "
           "rescue " +
           copy_ + "\n";
  }
  static void Put(const std::string& path, const std::string& bytes) {
    std::ofstream(path, std::ios::binary) << bytes;
  }
  static std::string Get(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    if (!file) return "(none)";
    return {std::istreambuf_iterator<char>(file), {}};
  }
  static struct stat StatusOf(const std::string& path) {
    struct stat status {};
    EXPECT_EQ(lstat(path.c_str(), &status), 0);
    return status;
  }

  test::TemporaryFolder folder_;
  const std::string root_ = folder_.Path("root");
  const std::string store_ = root_ + "/Store";
  const std::string file_ = store_ + "/ValmereProperties.ini";
  const std::string copy_ = file_ + ".refused";
};

TEST_F(RefusedFileTest, IsCopiedWithItsRightsAndTold) {
  Put(file_, "a|b=1\nxy");
  fs::permissions(file_, fs::perms{0640});
  if (getuid() == 0) {
    ASSERT_EQ(chown(file_.c_str(), 12, 34), 0);
  }
  EXPECT_EQ(Keep(), Refused("its checksum is wrong") + Kept());
  EXPECT_EQ(Get(copy_), "a|b=1\nxy");
  EXPECT_EQ(Get(file_), "a|b=1\nxy");
  const struct stat original = StatusOf(file_);
  const struct stat copy = StatusOf(copy_);
  EXPECT_EQ(copy.st_mode, original.st_mode);
  EXPECT_EQ(copy.st_uid, original.st_uid);
  EXPECT_EQ(copy.st_gid, original.st_gid);
}

TEST_F(RefusedFileTest, IsCopiedForAMalformedLine) {
  const std::string bytes = Sealed("a|b=1\nno line\n");
  Put(file_, bytes);
  EXPECT_EQ(Keep(), Refused("it holds a malformed line") + Kept());
  EXPECT_EQ(Get(copy_), bytes);
}

TEST_F(RefusedFileTest, IsNoneWhereTheFileIsSoundOrMissing) {
  EXPECT_THAT(Keep(), IsEmpty());
  Put(file_, Sealed("a|b=1\n"));
  EXPECT_THAT(Keep(), IsEmpty());
  EXPECT_FALSE(fs::exists(copy_));
}

TEST_F(RefusedFileTest, DoesNotTakeThePlaceOfAnEarlierOneWhenItHoldsNothing) {
  Put(copy_, "earlier");
  for (const char* bytes : {"", "xy"}) {
    Put(file_, bytes);
    EXPECT_EQ(Keep(), Refused("it is too short") + "there is nothing to keep\n");
    EXPECT_EQ(Get(copy_), "earlier");
  }
}

TEST_F(RefusedFileTest, TakesThePlaceOfAnEarlierOne) {
  Put(copy_, "earlier");
  Put(file_, "later");
  Keep();
  EXPECT_EQ(Get(copy_), "later");
  EXPECT_EQ(std::distance(fs::directory_iterator(store_), {}), 2) << "one generation, nothing else";
}

TEST_F(RefusedFileTest, IsNotWrittenAgainWhenItIsTheSame) {
  Put(file_, "damaged");
  Keep();
  const ino_t inode = StatusOf(copy_).st_ino;
  EXPECT_EQ(Keep(), Refused("its checksum is wrong") + Kept());
  EXPECT_EQ(StatusOf(copy_).st_ino, inode);
}

TEST_F(RefusedFileTest, FollowsNoLink) {
  Put(file_, "damaged");
  Put(folder_.Path("outside"), "damaged");
  fs::create_symlink(folder_.Path("outside"), copy_);
  Keep();
  EXPECT_FALSE(fs::is_symlink(copy_));
  EXPECT_EQ(Get(copy_), "damaged");
}

TEST_F(RefusedFileTest, IsLeftWhereItIsWhenItLiesBehindALink) {
  fs::remove(store_);
  fs::create_directories(folder_.Path("outside"));
  Put(folder_.Path("outside/ValmereProperties.ini"), "damaged");
  fs::create_directory_symlink(folder_.Path("outside"), store_);
  EXPECT_THAT(Keep(), IsEmpty());
  EXPECT_FALSE(fs::exists(copy_));
}

TEST_F(RefusedFileTest, IsToldWhenAFolderIsInTheWayOfTheCopy) {
  Put(file_, "damaged");
  fs::create_directories(copy_);
  EXPECT_EQ(Keep(), Refused("its checksum is wrong") +
                        "cannot be kept as ValmereProperties.ini.refused: Is a directory\n");
  EXPECT_EQ(std::distance(fs::directory_iterator(store_), {}), 2) << "nothing unfinished is left";
}

TEST_F(RefusedFileTest, IsNotCopiedWhenItIsLongerThanTheServiceReads) {
  Put(file_, "damaged");
  fs::resize_file(file_, (std::uintmax_t{16} << 20) + 1);
  EXPECT_EQ(Keep(), Refused("it can't be read to its end") +
                        "cannot be kept as ValmereProperties.ini.refused: File too large\n");
  EXPECT_FALSE(fs::exists(copy_));
}

TEST_F(RefusedFileTest, IsOpenToNobodyElseWhereItsOwnerCanNotBeGiven) {
  if (getuid() != 0) GTEST_SKIP() << "only the superuser can make a file of another's";
  Put(file_, "damaged");
  fs::permissions(file_, fs::perms{0644});
  fs::permissions(store_, fs::perms{0777});
  {
    const test::OtherUser other;
    EXPECT_THAT(Keep(), HasSubstr("kept as"));
  }
  EXPECT_EQ(StatusOf(copy_).st_mode & 0777U, 0600U);
}

TEST_F(RefusedFileTest, IsToldWhenThereIsNoRoomForTheCopy) {
  if (const std::string reason = test::WhyNothingCanBeMounted(); !reason.empty())
    GTEST_SKIP() << reason;
  const test::MountedFolder mounted(root_, "size=64k");
  fs::create_directories(store_);
  Put(file_, "damaged");
  Put(copy_, "earlier");
  mounted.Fill();
  EXPECT_EQ(Keep(), Refused("its checksum is wrong") + "cannot be kept as " +
                        "ValmereProperties.ini.refused: No space left on device\n");
  EXPECT_EQ(Get(copy_), "earlier");
  EXPECT_EQ(std::distance(fs::directory_iterator(store_), {}), 2) << "nothing unfinished is left";
}

}  // namespace
}  // namespace valmere::test
