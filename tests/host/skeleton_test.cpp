// What becomes of a root that is given a skeleton, whatever happens meanwhile.
#include "host/root/skeleton.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "tests/host/own_mounts.h"
#include "tests/host/subprocess.h"
#include "tests/host/traced_child.h"

namespace valmere::test {
using namespace host;
namespace {

namespace fs = std::filesystem;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

const std::vector<std::string> kWhole{"Store",
                                      "Store/ValmereProperties.ini",
                                      "boot",
                                      "boot/qtcommon_version.ini",
                                      "boot/qtlibs_version.ini",
                                      "windows",
                                      "windows/version.ini"};

class SkeletonTest : public ::testing::Test {
 protected:
  SkeletonTest() { fs::create_directories(path_); }

  void Give() const { CreateSkeleton(RootFolder(path_)); }
  void Empty() const {
    for (const auto& entry : fs::directory_iterator(path_))
      fs::remove_all(entry.path());
  }
  std::vector<std::string> Found() const {
    std::vector<std::string> found;
    for (const auto& entry : fs::recursive_directory_iterator(path_))
      found.push_back(fs::relative(entry.path(), path_).string());
    std::sort(found.begin(), found.end());
    return found;
  }
  std::uintmax_t BytesFound() const {
    std::uintmax_t bytes = 0;
    for (const auto& entry : fs::recursive_directory_iterator(path_))
      if (entry.is_regular_file()) bytes += entry.file_size();
    return bytes;
  }
  void ExpectWhole() const {
    EXPECT_EQ(Found(), kWhole);
    EXPECT_EQ(BytesFound(), 257U);
  }

  test::TemporaryFolder folder_;
  const std::string path_ = folder_.Path("root");
};

TEST_F(SkeletonTest, IsNotMissedForAFileThatHasTheNameOfAMark) {
  Give();
  for (const char* name : {"/.valmere-skeleton", "/.valmere-unfinished"})
    std::ofstream(path_ + name) << "somebody's";
  Give();
  EXPECT_TRUE(fs::exists(path_ + "/.valmere-skeleton"));
  EXPECT_TRUE(fs::exists(path_ + "/Store/ValmereProperties.ini"));
}

TEST_F(SkeletonTest, IsGivenToAnEmptyRootOnce) {
  Give();
  ExpectWhole();
  fs::remove(path_ + "/boot/qtlibs_version.ini");
  Give();
  EXPECT_EQ(Found().size(), kWhole.size() - 1);
}

TEST_F(SkeletonTest, IsGivenToAFileSystemThatWasJustMade) {
  fs::create_directories(path_ + "/lost+found");
  Give();
  fs::remove(path_ + "/lost+found");
  ExpectWhole();
}

TEST_F(SkeletonTest, IsNotGivenToARootThatHoldsSomething) {
  std::ofstream(path_ + "/.mine") << "precious";
  Give();
  EXPECT_THAT(Found(), ElementsAre(".mine"));
}

TEST_F(SkeletonTest, IsWholeAtTheNextStartWhereverAKillStoppedIt) {
  if (const std::string reason = test::WhyNothingCanBeTraced(); !reason.empty())
    GTEST_SKIP() << reason;
  int n = 1;
  for (; test::RunAndKillAtCall(n, [&] { Give(); }); ++n) {
    SCOPED_TRACE("killed at call " + std::to_string(n));
    const std::vector<std::string> left = Found();
    const bool marked = std::any_of(left.begin(), left.end(),
                                    [](const std::string& name) { return name[0] == '.'; });
    EXPECT_TRUE(marked || left.empty() || left == kWhole);
    Give();
    ExpectWhole();
    Empty();
  }
  EXPECT_GT(n, 50);
}

TEST_F(SkeletonTest, IsWholeAtTheStartAfterTwoThatWereKilled) {
  if (const std::string reason = test::WhyNothingCanBeTraced(); !reason.empty())
    GTEST_SKIP() << reason;
  const auto killed_at = [&](int n) { return test::RunAndKillAtCall(n, [&] { Give(); }); };
  for (int first = 1, second = 1; killed_at(first); Empty()) {
    SCOPED_TRACE("killed at calls " + std::to_string(first) + ", " + std::to_string(second));
    const bool again = killed_at(second);
    Give();
    ExpectWhole();
    second = again ? second + 11 : 1;
    first += again ? 0 : 7;
  }
}

#ifdef __x86_64__
TEST_F(SkeletonTest, LeavesTheRootEmptyOrWholeWhicheverCallIsRefused) {
  if (const std::string reason = test::WhyNothingCanBeTraced(); !reason.empty())
    GTEST_SKIP() << reason;
  int n = 1;
  for (; test::RunWithCallRefused(n, [&] { Give(); }); ++n) {
    SCOPED_TRACE("call " + std::to_string(n));
    if (!Found().empty()) ExpectWhole();
    Give();
    ExpectWhole();
    Empty();
  }
  EXPECT_GT(n, 30);
}
#endif

TEST_F(SkeletonTest, LeavesTheRootEmptyWhenTheDiskIsFull) {
  if (const std::string reason = test::WhyNothingCanBeMounted(); !reason.empty())
    GTEST_SKIP() << reason;
  int refused = 0;
  for (int n = 1; n < 12; ++n) {
    for (const std::string& limit :
         {"nr_inodes=" + std::to_string(n), "size=" + std::to_string(n * 4) + "k"}) {
      SCOPED_TRACE(limit);
      const test::MountedFolder small(path_, limit);
      try {
        Give();
        ExpectWhole();
      } catch (const RootUnusable& error) {
        ++refused;
        EXPECT_EQ(error.what(), path_ + ": cannot be given a skeleton: No space left on device");
        EXPECT_THAT(Found(), IsEmpty());
      }
    }
  }
  EXPECT_GE(refused, 8);
}

TEST_F(SkeletonTest, LeavesWhatSomebodyHasPutInThePlaceOfAPartThatIsYetToCome) {
  fs::create_directories(path_ + "/.valmere-skeleton/Store");
  fs::create_directories(path_ + "/.valmere-skeleton/boot");
  std::ofstream(path_ + "/.valmere-skeleton/Store/ValmereProperties.ini") << "new";
  fs::create_directories(path_ + "/Store");
  std::ofstream(path_ + "/Store/mine") << "precious";
  Give();
  EXPECT_THAT(Found(), ElementsAre("Store", "Store/mine", "boot"));
}

TEST_F(SkeletonTest, FollowsNoLinkWhenItClearsWhatIsUnfinished) {
  fs::create_directories(folder_.Path("outside"));
  std::ofstream(folder_.Path("outside/version.ini")) << "precious";
  fs::create_directories(path_ + "/.valmere-unfinished");
  fs::create_directory_symlink(folder_.Path("outside"), path_ + "/.valmere-unfinished/windows");
  EXPECT_THROW(Give(), RootUnusable);
  EXPECT_TRUE(fs::exists(folder_.Path("outside/version.ini")));
}

}  // namespace
}  // namespace valmere::test
