// A file that is written anew takes the place of the old one when it is whole.
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <string>
#include <vector>

#include "tests/platform/files_fixture.h"
#include "tests/platform/posix/file_size_limit.h"
#include "tests/platform/posix/standard_error_of.h"

namespace valmere::test {
using namespace platform;
namespace {

using test::FileSizeLimit;
using test::StandardErrorOf;

constexpr OpenFlags kAnew = kWrite | OpenFlags::kTruncate;

class ReplacedFiles : public DeviceFiles {
 protected:
  // Names in the root, all but the file's.
  std::vector<std::string> Others() const {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(root_.At("root"))) {
      if (entry.path().filename() != "f") names.push_back(entry.path().filename());
    }
    return names;
  }
  struct stat Status() const {
    struct stat status {};
    EXPECT_EQ(lstat(root_.At("root/f").c_str(), &status), 0);
    return status;
  }
};

TEST_F(ReplacedFiles, KeepTheirOldContentUntilTheNewOneIsComplete) {
  root_.Put("root/f", "old");
  {
    const auto file = Open(u"\\f", kAnew);
    EXPECT_EQ(Write(file, "new"), 3u);
    EXPECT_EQ(root_.Get("root/f"), "old");
    EXPECT_EQ(Others().size(), 1u);
    EXPECT_TRUE(file->Complete());
    EXPECT_EQ(root_.Get("root/f"), "new");
  }
  EXPECT_EQ(root_.Get("root/f"), "new");
  EXPECT_EQ(Others(), std::vector<std::string>());
}

TEST_F(ReplacedFiles, KeepTheirOldContentWhenTheNewOneIsGivenUp) {
  root_.Put("root/f", "old");
  EXPECT_EQ(Write(Open(u"\\f", kAnew), "new"), 3u);
  EXPECT_EQ(root_.Get("root/f"), "old");
  EXPECT_EQ(Others(), std::vector<std::string>());
}

TEST_F(ReplacedFiles, AreNotThereBeforeTheFirstIsComplete) {
  const auto file = Open(u"\\f", kAnew | kRead);
  EXPECT_FALSE(root_.Has("root/f"));
  EXPECT_EQ(Write(file, "new"), 3u);
  EXPECT_TRUE(file->Complete());
  EXPECT_EQ(root_.Get("root/f"), "new");
}

TEST_F(ReplacedFiles, KeepTheirOldContentOnAFullDisk) {
  root_.Put("root/f", "old");
  const StandardErrorOf said;
  {
    const FileSizeLimit limit(2000);
    const auto file = Open(u"\\f", kAnew);
    EXPECT_EQ(Write(file, std::string(3000, 'n')), 2000u);
    EXPECT_EQ(Write(file, "more"), 0u);
    EXPECT_FALSE(file->Complete());
  }
  EXPECT_EQ(root_.Get("root/f"), "old");
  EXPECT_EQ(Others(), std::vector<std::string>());
  EXPECT_EQ(said.text(), "valmere: cannot write " + root_.At("root/f") + ": File too large\n");
}

TEST_F(ReplacedFiles, KeepModeAndOwner) {
  if (geteuid() != 0) GTEST_SKIP() << "only root may give a file away";
  root_.Put("root/f", "old");
  ASSERT_EQ(chown(root_.At("root/f").c_str(), 1234, 4321), 0);
  ASSERT_EQ(chmod(root_.At("root/f").c_str(), 04640), 0);
  const auto file = Open(u"\\f", kAnew);
  EXPECT_EQ(Write(file, "new"), 3u);
  EXPECT_TRUE(file->Complete());
  const struct stat status = Status();
  EXPECT_EQ(status.st_uid, 1234u);
  EXPECT_EQ(status.st_gid, 4321u);
  EXPECT_EQ(status.st_mode & 07777, 0640u) << "without the right to run as its owner";
}

TEST_F(ReplacedFiles, ThatWereNotThereHaveTheModeOfEveryNewFile) {
  const mode_t before = umask(027);
  EXPECT_TRUE(Open(u"\\f", kAnew)->Complete());
  umask(before);
  EXPECT_EQ(Status().st_mode & 07777, 0640u);
}

TEST_F(ReplacedFiles, AreNoLinksAndNoPipes) {
  root_.Put("target", "outside");
  ASSERT_EQ(symlink("../target", root_.At("root/f").c_str()), 0);
  EXPECT_EQ(Open(u"\\f", kAnew), nullptr);
  EXPECT_EQ(root_.Get("target"), "outside");
  ASSERT_EQ(mkfifo(root_.At("root/pipe").c_str(), 0600), 0);
  EXPECT_EQ(Open(u"\\pipe", kAnew), nullptr);
}

TEST_F(ReplacedFiles, ThatAnotherProcessReplacesMeanwhileStayAsItLeftThem) {
  root_.Put("root/f", "old");
  const auto file = Open(u"\\f", kAnew);
  EXPECT_EQ(Write(file, "made from the old one"), 21u);
  root_.Put("root/g", "his");
  ASSERT_EQ(rename(root_.At("root/g").c_str(), root_.At("root/f").c_str()), 0);
  EXPECT_FALSE(file->Complete());
  EXPECT_EQ(root_.Get("root/f"), "his");
}

TEST_F(ReplacedFiles, ThatAnotherProcessMakesMeanwhileStayAsItMadeThem) {
  const auto file = Open(u"\\f", kAnew);
  EXPECT_EQ(Write(file, "made from nothing"), 17u);
  root_.Put("root/f", "his");
  EXPECT_FALSE(file->Complete());
  EXPECT_EQ(root_.Get("root/f"), "his");
}

TEST_F(ReplacedFiles, TwoAtOnceDoNotMixAndTheFirstToCompleteCounts) {
  root_.Put("root/f", "old");
  const auto first = Open(u"\\f", kAnew);
  const auto second = Open(u"\\f", kAnew);
  EXPECT_EQ(Write(first, "first"), 5u);
  EXPECT_EQ(Write(second, "second"), 6u);
  EXPECT_TRUE(second->Complete());
  EXPECT_FALSE(first->Complete()) << "it was made from a file that is no more";
  EXPECT_EQ(root_.Get("root/f"), "second");
}

TEST_F(ReplacedFiles, OfProcessesThatWereKilledAreCleared) {
  root_.Put("root/f", "old");
  const pid_t child = fork();
  if (child == 0) {
    const auto file = Open(u"\\f", kAnew);
    _exit(Write(file, "half") == 4 ? 0 : 1);
  }
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  ASSERT_EQ(status, 0);
  ASSERT_EQ(Others().size(), 1u);
  const std::shared_ptr<FileSystem> next = MakeDeviceFileSystem();
  EXPECT_NE(next->Open(u"\\f", kRead), nullptr);
  EXPECT_EQ(Others(), std::vector<std::string>());
  EXPECT_EQ(root_.Get("root/f"), "old");
}

TEST_F(ReplacedFiles, ThatAnotherIsAtAreNotCleared) {
  root_.Put("root/.valmere-notes", "another program's");
  root_.Put("root/f", "old");
  const auto file = Open(u"\\f", kAnew);
  EXPECT_EQ(Write(file, "new"), 3u);
  EXPECT_NE(MakeDeviceFileSystem()->Open(u"\\f", kRead), nullptr);
  EXPECT_TRUE(file->Complete());
  EXPECT_EQ(root_.Get("root/f"), "new");
  EXPECT_EQ(Others(), std::vector<std::string>{".valmere-notes"});
}

TEST_F(ReplacedFiles, AreNotReachedByTheNamesThatTheyAreWrittenUnder) {
  root_.Put("root/.valmere-1-1.new", "under way");
  EXPECT_EQ(Open(u"\\.valmere-1-1.new", kRead), nullptr);
  EXPECT_EQ(Open(u"\\.valmere-skeleton", kAnew), nullptr);
  EXPECT_EQ(Open(u"\\.valmere-folder\\f", kWrite), nullptr);
  EXPECT_FALSE(files_->Exists(u"\\.valmere-1-1.new"));
  EXPECT_FALSE(files_->Remove(u"\\.valmere-1-1.new"));
  EXPECT_FALSE(root_.Has("root/.valmere-skeleton"));
  EXPECT_TRUE(root_.Has("root/.valmere-1-1.new"));
}

TEST_F(ReplacedFiles, HaveRoomForTheLongestName) {
  const std::string name(255, 'n');
  const auto file = Open(u"\\" + WidenPath(name), kAnew);
  EXPECT_EQ(Write(file, "new"), 3u);
  EXPECT_TRUE(file->Complete());
  EXPECT_EQ(root_.Get("root/" + name), "new");
}

TEST_F(ReplacedFiles, AreBroughtToTheDiskWhereverTheyAreByThen) {
  EXPECT_TRUE(files_->Sync());
  EXPECT_TRUE(Open(u"\\f", kAnew)->Complete());
  EXPECT_TRUE(Open(u"\\gone", kAnew)->Complete());
  root_.Remove("root/gone");
  EXPECT_TRUE(files_->Sync());
}

TEST_F(ReplacedFiles, WhoseFolderHasGoneNeedNoSync) {
  root_.MakeFolder("root/folder");
  EXPECT_TRUE(Open(u"\\folder\\f", kAnew)->Complete());
  root_.Remove("root/folder/f");
  root_.Remove("root/folder");
  EXPECT_TRUE(files_->Sync());
}

TEST_F(ReplacedFiles, GiveUpWhereAllNamesBesideThemAreTaken) {
  root_.Put("root/f", "old");
  Write(Open(u"\\f", kAnew), "tells the number of the next");
  ASSERT_TRUE(Open(u"\\f", kAnew)->Complete());
  for (int i = 0; i < 1000; ++i)
    root_.Put("root/.valmere-" + std::to_string(getpid()) + "-" + std::to_string(i) + ".new", "");
  EXPECT_EQ(Open(u"\\f", kAnew), nullptr);
}

TEST_F(ReplacedFiles, AreForTheNextSyncWhenTheRootHasGone) {
  EXPECT_TRUE(Open(u"\\f", kAnew)->Complete());
  const StandardErrorOf said;
  ASSERT_EQ(rename(root_.At("root").c_str(), root_.At("moved").c_str()), 0);
  EXPECT_FALSE(files_->Sync());
  EXPECT_EQ(Open(u"\\f", kAnew), nullptr);
  EXPECT_EQ(said.text(), "valmere: cannot write " + root_.At("root/f") + ": the root has gone\n");
  ASSERT_EQ(rename(root_.At("moved").c_str(), root_.At("root").c_str()), 0);
  EXPECT_TRUE(files_->Sync());
  EXPECT_TRUE(Open(u"\\f", kAnew)->Complete());
  EXPECT_EQ(said.text(), "valmere: cannot write " + root_.At("root/f") +
                             ": the root has gone\nvalmere: " + root_.At("root/f") +
                             " is written again\n");
}

// Runs `act` in a process of a user without rights here.
template <class Act>
int AsNobody(Act act) {
  const pid_t child = fork();
  if (child == 0) {
    if (setgid(65534) != 0 || setuid(65534) != 0) _exit(99);
    _exit(act());
  }
  int status = 0;
  waitpid(child, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

// A file of root's in a folder of root's, whose rights the test sets.
class ReplacedFilesOfAnotherUser : public ReplacedFiles {
 protected:
  void SetUp() override {
    if (geteuid() != 0) GTEST_SKIP() << "only root can become another user";
    root_.Put("root/f", "old");
    Allow("", 0755);
  }
  void Allow(const std::string& path, mode_t mode) const { chmod(root_.At(path).c_str(), mode); }
  bool NobodyWrites() {
    return AsNobody([&] {
             const auto file = Open(u"\\f", kAnew);
             return Write(file, "new") == 3 && file->Complete() ? 0 : 1;
           }) == 0;
  }
};

TEST_F(ReplacedFilesOfAnotherUser, AreWrittenInPlaceWhereTheFolderTakesNoNewFile) {
  Allow("root", 0755);
  Allow("root/f", 0666);
  const auto before = Status().st_ino;
  EXPECT_TRUE(NobodyWrites());
  EXPECT_EQ(root_.Get("root/f"), "new");
  EXPECT_EQ(Status().st_ino, before);
}

TEST_F(ReplacedFilesOfAnotherUser, AreWrittenInPlaceWhereTheOwnerCantBeKept) {
  Allow("root", 0777);
  Allow("root/f", 0666);
  EXPECT_TRUE(NobodyWrites());
  EXPECT_EQ(root_.Get("root/f"), "new");
  EXPECT_EQ(Status().st_uid, 0u);
  EXPECT_EQ(Others(), std::vector<std::string>());
}

TEST_F(ReplacedFilesOfAnotherUser, AreNotReplacedWhereTheyCantBeWritten) {
  Allow("root", 0777);
  Allow("root/f", 0444);
  EXPECT_EQ(AsNobody([&] { return Open(u"\\f", kAnew) == nullptr ? 0 : 1; }), 0);
  EXPECT_EQ(root_.Get("root/f"), "old");
}

}  // namespace
}  // namespace valmere::test
