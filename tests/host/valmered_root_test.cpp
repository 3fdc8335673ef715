// valmered and the folder that stands for the device's files: one that keeps nothing, one that
// goes, one that holds what the service refuses.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "tests/host/own_mounts.h"
#include "tests/host/valmered_fixture.h"

namespace valmere::test {
namespace {

namespace fs = std::filesystem;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::StartsWith;
using ::testing::UnorderedElementsAre;

std::vector<std::string> FilesBelow(const std::string& folder) {
  std::vector<std::string> files;
  for (const auto& entry : fs::recursive_directory_iterator(folder))
    files.push_back(fs::relative(entry.path(), folder).string());
  return files;
}

std::string ContentOf(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

using ValmeredRootTest = ValmeredTest;

TEST_F(ValmeredRootTest, HasAnExitCodeOfItsOwnWhenItCanNotBeMade) {
  fs::remove_all(root_);
  std::ofstream(root_) << "a file";
  Subprocess failed(Command(), environment_);
  EXPECT_EQ(failed.Wait(), 5);
  EXPECT_THAT(failed.errors(), StartsWith("valmered: " + root_ + ": cannot make the root"));
}

TEST_F(ValmeredRootTest, HasAnExitCodeOfItsOwnWhenItCanNotBeGivenASkeleton) {
  if (const std::string reason = WhyNothingCanBeMounted(); !reason.empty()) GTEST_SKIP() << reason;
  const MountedFolder mounted(root_, "size=64k,nr_inodes=4");
  Subprocess failed(Command({"--init-root"}), environment_);
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
      UnorderedElementsAre("Store", "Store/ValmereProperties.ini", "windows", "windows/version.ini",
                           "boot", "boot/qtlibs_version.ini", "boot/qtcommon_version.ini"));
  EXPECT_THAT(ContentOf(root_ + "/windows/version.ini"), HasSubstr("OSVersion="));
  Stop(SIGTERM);
}

TEST_F(ValmeredRootTest, IsGivenNothingWhenItHoldsSomething) {
  std::ofstream(root_ + "/mine") << "precious";
  Start({"--init-root"});
  EXPECT_THAT(FilesBelow(root_), UnorderedElementsAre("mine", "Store"));
}

TEST_F(ValmeredRootTest, IsGivenNothingUnasked) {
  fs::remove_all(root_);
  Start();
  EXPECT_TRUE(fs::is_empty(root_));
}

}  // namespace
}  // namespace valmere::test
