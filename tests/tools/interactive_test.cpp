// valmere on a terminal without a command.
#include "tools/interactive/interactive.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <csignal>
#include <future>
#include <memory>

#include "tests/client/fake_service.h"
#include "tests/tools/command_run.h"
#include "tests/tools/pseudo_terminal.h"
#include "tools/interactive/history_file.h"

namespace valmere::test {
namespace {

using client::Property;
using ::testing::HasSubstr;
using ::testing::Not;

const Property kTopSpeed{"G1", "Motion", "P1", "Top Speed", "fortytwo", client::kSuccessful,
                         "C1", "Head"};
const Property kInkColour{"G1", "Motion", "P2", "Colour", "redred", client::kSuccessful,
                          "C1", "Head"};
const Property kCode{"G1", "Motion", "P3", "Code", "sixsix", client::kSuccessful, "C1", "Head"};
const Property kSize{"G1",
                     "Motion",
                     "P4",
                     "Gr\xc3\xb6\xc3\x9f"
                     "e",
                     "largelarge",
                     client::kSuccessful,
                     "C1",
                     "Head"};

constexpr char kPrompt[] = "valmere> ";

// Answers gets with everything, and every other request as a subscription.
void AnswerRequests(const FakeConnection& connection) {
  Property nobodys;
  nobodys.status = client::kNotFound;
  for (std::string text = connection.Receive(); !text.empty(); text = connection.Receive()) {
    if (text.find("GetAllProperties") != std::string::npos)
      connection.Send(ResponseText({kTopSpeed, kInkColour, kCode, kSize}));
    else
      connection.Send(ResponseText({nobodys}));
  }
}

class InteractiveTest : public ::testing::Test {
 protected:
  void Start() {
    // TERM is one that moves the cursor without colours.
    terminal_ = std::make_unique<PseudoTerminal>(
        std::vector<std::string>{VALMERE, "--socket", socket_, "--timeout", "60"},
        std::vector<std::string>{"TERM=vt100", "LC_ALL=C.UTF-8", "HOME=" + folder_.Path("home"),
                                 "XDG_STATE_HOME=" + folder_.Path("state")});
    terminal_->Await(kPrompt);
  }
  void Serve() {
    service_ = std::make_unique<FakeService>(AnswerRequests);
    socket_ = service_->path();
  }
  // Runs a line; what it shows before the next prompt.
  std::string Run(const std::string& line) {
    terminal_->Type(line + "\n");
    terminal_->Await("\r\n");
    return terminal_->Await(kPrompt);
  }
  int End() {
    terminal_->Type("\x04");
    return terminal_->Wait();
  }
  std::string HistoryFilePath() const { return folder_.Path("state/valmere/history"); }

  const TemporaryFolder folder_;
  std::string socket_ = "/nonexistent/PRN1";
  std::unique_ptr<FakeService> service_;
  std::unique_ptr<PseudoTerminal> terminal_;
};

TEST_F(InteractiveTest, RunsEachLine) {
  Serve();
  Start();
  EXPECT_THAT(Run("get Colour 'Top Speed'"), HasSubstr("redred\r\nfortytwo\r\n"));
  EXPECT_THAT(Run(R"(get Top\ Speed "Motion/Top Speed")"), HasSubstr("fortytwo\r\nfortytwo\r\n"));
  EXPECT_THAT(Run("valmere get Code"), HasSubstr("sixsix\r\n"));
  EXPECT_THAT(Run("get 'Colour"), HasSubstr("valmere: the line ends within '"));
  EXPECT_THAT(Run("bogus"), HasSubstr("valmere: "));
  EXPECT_THAT(Run("   "), Not(HasSubstr("valmere: ")));
  EXPECT_EQ(End(), 0);
}

TEST_F(InteractiveTest, ExplainsItself) {
  Start();
  EXPECT_THAT(Run("help"), HasSubstr("exit, quit, Ctrl-D"));
  EXPECT_THAT(Run("help get"), HasSubstr("Usage: valmere get"));
}

TEST_F(InteractiveTest, EndsWhenItIsAskedTo) {
  for (const char* command : {"exit\n", "quit\n", "\x04"}) {
    Start();
    terminal_->Type(command);
    EXPECT_EQ(terminal_->Wait(), 0);
  }
}

TEST_F(InteractiveTest, EndsInOrderOnSignals) {
  for (const int signal : {SIGTERM, SIGHUP}) {
    Start();
    terminal_->Type("half a line");
    terminal_->Await("half a line");
    terminal_->Signal(signal);
    EXPECT_EQ(terminal_->Wait(), 0);
  }
}

TEST_F(InteractiveTest, OutlivesAServiceThatIsNotThere) {
  Serve();
  Start();
  service_.reset();
  EXPECT_THAT(Run("get Colour"), HasSubstr("valmere: cannot connect"));
  terminal_->Type("get Co\t");  // nothing to complete with
  EXPECT_THAT(Run("lour"), HasSubstr("valmere: cannot connect"));
  EXPECT_EQ(End(), 0);
}

TEST_F(InteractiveTest, DropsTheLineOnInterrupt) {
  Serve();
  Start();
  terminal_->Type("get Col\x03");
  terminal_->Await("^C");
  terminal_->Await(kPrompt);
  EXPECT_THAT(Run("get Code"), HasSubstr("sixsix\r\n"));
  EXPECT_EQ(End(), 0);
}

TEST_F(InteractiveTest, InterruptsTheCommandAndGoesOn) {
  Serve();
  Start();
  terminal_->Type("watch\n");
  terminal_->Await("watching\r\n");
  terminal_->Type("\x03");
  EXPECT_THAT(terminal_->Await(kPrompt), Not(HasSubstr("^C")));
  EXPECT_THAT(Run("get Code"), HasSubstr("sixsix\r\n"));
  EXPECT_EQ(End(), 0);
}

TEST_F(InteractiveTest, CompletesTheOnlyCandidate) {
  Serve();
  Start();
  EXPECT_THAT(Run("ge\tTo\t"), HasSubstr("fortytwo"));
  EXPECT_THAT(Run("get 'To\t"), HasSubstr("fortytwo"));
  EXPECT_THAT(Run("get \"Motion/To\t"), HasSubstr("fortytwo"));
  EXPECT_THAT(Run("get Top\\ \t"), HasSubstr("fortytwo"));
  EXPECT_THAT(Run("get Gr\t"), HasSubstr("largelarge"));
  EXPECT_THAT(Run("get Gr\xc3\xb6\t"), HasSubstr("largelarge"));
  EXPECT_EQ(End(), 0);
}

TEST_F(InteractiveTest, ShowsTheCandidatesWhenThereAreSeveral) {
  Serve();
  Start();
  terminal_->Type("get C\t\t");
  terminal_->Await("Code");
  terminal_->Await("Colour");
  terminal_->Await("get Co");
  terminal_->Type("d\t\n");
  terminal_->Await("sixsix");
  terminal_->Await(kPrompt);
  terminal_->Type("\t");
  terminal_->Await("exit");
  terminal_->Await("get");
  terminal_->Await("help");
}

TEST_F(InteractiveTest, KeepsTheHistoryForTheUserAlone) {
  Start();
  Run("list --bogus");
  Run(" get secret");
  Run("list --bogus  ");
  EXPECT_EQ(End(), 0);
  EXPECT_EQ(BytesOf(HistoryFilePath()), "list --bogus\n");
  struct stat status {};
  ASSERT_EQ(stat(HistoryFilePath().c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777, 0600u);
  Start();
  terminal_->Type("\x1b[A");
  terminal_->Await("list --bogus");
}

TEST(InteractiveHistory, IsCutWhenItIsFarTooLong) {
  const TemporaryFolder folder;
  const std::string path = folder.Path("deep/er/history");
  const tools::HistoryFile history(path);
  const std::size_t lines = 2 * tools::HistoryFile::kMostLines + 1;
  for (std::size_t i = 0; i < lines; ++i) {
    history.Append("line " + std::to_string(i));
  }
  const std::vector<std::string> kept = history.Load();
  ASSERT_EQ(kept.size(), tools::HistoryFile::kMostLines);
  EXPECT_EQ(kept.back(), "line " + std::to_string(lines - 1));
  EXPECT_EQ(history.Load(), kept);
  EXPECT_THAT(BytesOf(path), ::testing::StartsWith(kept.front() + "\n"));
}

TEST(InteractiveHistory, CostsNothingWhereItCannotBeKept) {
  tools::HistoryFile("").Append("line");
  tools::HistoryFile("/proc/none/history").Append("line");
  EXPECT_TRUE(tools::HistoryFile("/proc/none/history").Load().empty());
}

}  // namespace
}  // namespace valmere::test
