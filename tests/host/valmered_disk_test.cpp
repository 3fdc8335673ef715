// valmered where there is no room, or where it may open or write no more. The root's files are
// looked at through a descriptor of its folder, so that they can be seen where only valmered has
// them mounted, and after its end. The names have a namespace of their own, since the folder's
// tests are compiled together.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "platform/posix/sanitizers.h"
#include "tests/host/valmered_fixture.h"
#include "tests/kill/property_file.h"

namespace valmere::test {
namespace {

using ::testing::AllOf;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::Not;

constexpr std::size_t kPage = 4096;
constexpr char kComponent[] = "955CFDC2-8EA6-478E-A927-7C870022EA03";
constexpr char kPeriod[] =
    "99A61D40-20CE-41EA-A579-EB92C6ED94C6:DA821DC5-948D-4659-9B52-177E4C102129";
constexpr char kPeriodNames[] = "|General:Property Publishing Period in ms";
constexpr char kZone[] =
    "E96B0063-C2EF-4545-92E1-AC4990BA1B37:8D6BC3E1-3943-4E0D-97E7-601690F93C1E";
constexpr char kZoneNames[] = "|Debug Zone:Enable Info Debug Zone";
constexpr std::chrono::milliseconds kBetweenLooks{2};
// Of a shell that has the mounts to itself: the folder, and the program with its arguments.
constexpr char kMountAndRun[] = R"(mount -t tmpfs -o size=64k none "$1" && shift && exec "$@")";

std::string Bytes(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

std::string SetOf(const std::string& key, const std::string& value) {
  return std::string(R"({"PropertySetRequests": [{"Component": ")") + kComponent +
         R"(","GUID": ")" + key + R"(","Value": ")" + value + R"("}]})";
}

// Takes what room there is.
void Fill(const std::string& path) {
  const int file = open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
  const std::string page(kPage, 'x');
  while (write(file, page.data(), page.size()) > 0) {
  }
  EXPECT_EQ(errno, ENOSPC);
  close(file);
}

class ValmeredDiskTest : public ::testing::Test {
 protected:
  ~ValmeredDiskTest() override { close(view_); }

  void Start() {
    Run({});
    LookAt(root_);
  }
  // A property file that fills a page: one byte more needs another. The log has a page of its own.
  void WriteAWholePage() {
    const std::string period = std::string(kPeriod) + kPeriodNames + "=500";
    const std::string begin = "A1:B2|Of:Others=";
    const std::size_t rest = kPage - 2 - (period.size() + 1) - (begin.size() + 1);
    test::WritePropertyFile(file_, {period, begin + std::string(rest, 'x')});
    old_ = Bytes(file_);
    ASSERT_EQ(old_.size(), kPage);
    std::ofstream(log_, std::ios::binary | std::ios::app) << "here the test begins\r\n";
  }
  void Limit(decltype(RLIMIT_NOFILE) resource, rlim_t soft) {
    rlimit limit{};
    ASSERT_EQ(prlimit(valmered_->process(), resource, nullptr, &limit), 0);
    limit.rlim_cur = std::min(soft, limit.rlim_max);
    ASSERT_EQ(prlimit(valmered_->process(), resource, &limit, nullptr), 0);
  }

  // The sanitizers of addresses and behaviour want a descriptor now and then. Without one they take
  // sound objects for broken ones, and end the program.
  void StartThatNeedsNoDescriptors() {
#ifdef VALMERE_ADDRESS_SANITIZER
    GTEST_SKIP() << "the sanitizer needs descriptors of its own";
#else
    Start();
#endif
  }
  // Lets valmered open so many more, by numbers that it does not use yet.
  void LeaveDescriptors(rlim_t count) {
    const std::string used = "/proc/" + std::to_string(valmered_->process()) + "/fd/";
    rlim_t limit = 0;
    for (;; ++limit) {
      const bool is_used = std::filesystem::is_symlink(
          std::filesystem::symlink_status(used + std::to_string(limit)));
      if (!is_used && count-- == 0) break;
    }
    Limit(RLIMIT_NOFILE, limit);
  }
  // Until all that serves the client is there.
  static void AwaitService(const RawClient& client) {
    client.Send(FrameOf(kGetAll));
    client.ReceiveFrame();
  }

  void ExpectTheOldFile() const {
    EXPECT_TRUE(Bytes(file_) == old_) << "it has " << Bytes(file_).size() << " bytes";
  }
  void ExpectFailureIsToldAndTheOldFileThere() {
    AwaitText(log_, "was not written");
    ExpectTheOldFile();
  }
  void ExpectRecoveryIsToldAndTheFileHas(const std::string& period, const std::string& zone) {
    AwaitText(log_, "is written again");
    const test::PropertyFile file = test::ReadPropertyFile(file_);
    EXPECT_EQ(file.fault, "");
    EXPECT_EQ(file.lines.size(), 3U);
    EXPECT_EQ(ValueIn(file, std::string(kPeriod) + kPeriodNames), period);
    EXPECT_EQ(ValueIn(file, std::string(kZone) + kZoneNames), zone);
    ExpectNoLeftovers();
  }
  void AwaitPeriod(const std::string& period) const {
    RepeatUntil(
        [&] {
          const test::PropertyFile file = test::ReadPropertyFile(file_);
          return ValueIn(file, std::string(kPeriod) + kPeriodNames) == period;
        },
        [] { std::this_thread::sleep_for(kBetweenLooks); });
  }
  void ExpectNoLeftovers() const {
    for (const auto& entry : std::filesystem::directory_iterator(store_)) {
      EXPECT_THAT(entry.path().filename().string(), Not(EndsWith(".new")));
    }
  }
  // The next line of valmered about the property file.
  std::string ErrorLine() {
    std::string line = valmered_->ReadErrorLine();
    while (!line.empty() && line.find("ValmereProperties.ini") == std::string::npos)
      line = valmered_->ReadErrorLine();
    return line;
  }

  void Run(std::vector<std::string> command) {
    command.insert(command.end(), {VALMERED, "--root", root_, "--init-root", "--socket", socket_});
    valmered_ = std::make_unique<Subprocess>(command);
    ASSERT_EQ(valmered_->ReadLine(), "valmered: ready on " + socket_);
  }
  void LookAt(const std::string& root) {
    view_ = open(root.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC);
    ASSERT_GE(view_, 0) << root;
    const std::string view = "/proc/self/fd/" + std::to_string(view_);
    filler_ = view + "/filler";
    store_ = view + "/Store";
    file_ = store_ + "/ValmereProperties.ini";
    log_ = store_ + "/ValmereLog.txt";
  }

  TemporaryFolder folder_;
  const std::string root_ = folder_.Path("root");
  const std::string socket_ = folder_.Path("PRN1");
  int view_ = -1;
  std::string store_;
  std::string file_;
  std::string log_;
  std::string filler_;
  std::string old_;
  std::unique_ptr<Subprocess> valmered_;

 private:
  static void AwaitText(const std::string& path, const std::string& text) {
    RepeatUntil([&] { return Bytes(path).find(text) != std::string::npos; },
                [] { std::this_thread::sleep_for(kBetweenLooks); });
  }
  static std::string ValueIn(const test::PropertyFile& file, const std::string& left_side) {
    const auto line = file.lines.find(left_side);
    return line == file.lines.end() ? "no such line" : line->second;
  }
};

// With its root on a file system of 64 kB.
class ValmeredSmallDiskTest : public ValmeredDiskTest {
 protected:
  void SetUp() override {
    std::filesystem::create_directory(root_);
    Subprocess first(WithItsOwnMounts("true"));
    if (first.Wait() != 0) GTEST_SKIP() << "nothing can be mounted here: " << first.errors();
    Run(WithItsOwnMounts(""));
    LookAt("/proc/" + std::to_string(valmered_->process()) + "/root" + root_);
  }

 private:
  std::vector<std::string> WithItsOwnMounts(const std::string& program) const {
    std::vector<std::string> command = {"/usr/bin/env", "unshare", "--user", "--map-root-user",
                                        "--mount",      "sh",      "-c",     kMountAndRun,
                                        "sh",           root_};
    if (!program.empty()) command.push_back(program);
    return command;
  }
};

TEST_F(ValmeredSmallDiskTest, KeepsTheOldFileOnAFullDiskAndWritesWhenThereIsRoom) {
  WriteAWholePage();
  Fill(filler_);
  const RawClient client(socket_);
  client.Send(FrameOf(SetOf(kPeriod, "1000")));
  ExpectFailureIsToldAndTheOldFileThere();
  EXPECT_THAT(ErrorLine(), AllOf(HasSubstr("cannot write"), HasSubstr("No space left on device")));
  client.Send(FrameOf(SetOf(kZone, "True")) + FrameOf(SetOf(kPeriod, "2000")));
  ExpectTheOldFile();
  std::filesystem::remove(filler_);
  ExpectRecoveryIsToldAndTheFileHas("2000", "True");
  EXPECT_THAT(ErrorLine(), HasSubstr("is written again"));
}

TEST_F(ValmeredSmallDiskTest, NamesWhatItCouldNotStoreWhenItEndsOnAFullDisk) {
  WriteAWholePage();
  Fill(filler_);
  const RawClient client(socket_);
  client.Send(FrameOf(SetOf(kPeriod, "1000")));
  ExpectFailureIsToldAndTheOldFileThere();
  valmered_->Signal(SIGTERM);
  EXPECT_EQ(valmered_->Wait(), 0);
  EXPECT_THAT(valmered_->errors(),
              AllOf(HasSubstr("not stored"), HasSubstr("Property Publishing Period in ms")));
  EXPECT_THAT(Bytes(log_), HasSubstr("not stored"));
  ExpectTheOldFile();
  ExpectNoLeftovers();
}

TEST_F(ValmeredDiskTest, WritesWhenDescriptorsAreToBeHadAgain) {
  StartThatNeedsNoDescriptors();
  if (IsSkipped()) return;
  WriteAWholePage();
  const RawClient client(socket_);
  AwaitService(client);
  LeaveDescriptors(0);
  client.Send(FrameOf(SetOf(kPeriod, "1000")));
  ExpectFailureIsToldAndTheOldFileThere();
  client.Send(FrameOf(SetOf(kZone, "True")));
  ExpectTheOldFile();
  Limit(RLIMIT_NOFILE, RLIM_INFINITY);
  ExpectRecoveryIsToldAndTheFileHas("1000", "True");
}

TEST_F(ValmeredDiskTest, NeedsNoMoreThanTwoDescriptorsForALine) {
  StartThatNeedsNoDescriptors();
  if (IsSkipped()) return;
  const RawClient client(socket_);
  AwaitService(client);
  LeaveDescriptors(2);
  client.Send(FrameOf(SetOf(kPeriod, "1000")));
  AwaitPeriod("1000");
}

TEST_F(ValmeredDiskTest, KeepsTheOldFileWhereANewOneWouldBeLongerThanAllowed) {
  Start();
  WriteAWholePage();
  Limit(RLIMIT_FSIZE, kPage);
  const RawClient client(socket_);
  client.Send(FrameOf(SetOf(kPeriod, "1000")));
  ExpectFailureIsToldAndTheOldFileThere();
  EXPECT_THAT(ErrorLine(), AllOf(HasSubstr("cannot write"), HasSubstr("File too large")));
  client.Send(FrameOf(SetOf(kZone, "True")));
  ExpectTheOldFile();
  Limit(RLIMIT_FSIZE, RLIM_INFINITY);
  ExpectRecoveryIsToldAndTheFileHas("1000", "True");
  EXPECT_THAT(ErrorLine(), HasSubstr("is written again"));
}

}  // namespace
}  // namespace valmere::test
