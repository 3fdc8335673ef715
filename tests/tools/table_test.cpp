// What stands on a terminal, and in which colour.
#include "tools/output/table.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <clocale>
#include <cstdlib>

#include "tools/output/property_output.h"
#include "tools/output/property_tree.h"

namespace valmere::test {
namespace {

using client::Property;

const Property kSpeedRow{"GG1", "Motor", "PG1", "Speed", "42", client::kSuccessful, "CG1", "Head"};
const Property kLimit{"GG1", "Motor", "PG2", "Limit", "99", client::kSuccessful, "CG1", "Head"};
const Property kNote{"GG2", "Texts", "PG3", "Note", "a long remark", client::kSuccessful,
                     "CG1", "Head"};
const Property kOther{"GG2", "Texts", "PG3", "Note", "x\ty", client::kSuccessful, "CG2", "Spare"};

tools::OutputOptions Colored(tools::ColorChoice choice) {
  tools::OutputOptions options;
  options.color = choice;
  return options;
}

// A terminal of a width; what is printed on it can be read back.
class Terminal {
 public:
  explicit Terminal(unsigned short columns) : master_(posix_openpt(O_RDWR | O_NOCTTY)) {
    EXPECT_GE(master_, 0);
    EXPECT_EQ(grantpt(master_), 0);
    EXPECT_EQ(unlockpt(master_), 0);
    file_ = std::fopen(ptsname(master_), "r+");
    const winsize size{24, columns, 0, 0};
    EXPECT_EQ(ioctl(master_, TIOCSWINSZ, &size), 0);
  }
  ~Terminal() {
    std::fclose(file_);
    close(master_);
  }
  Terminal(const Terminal&) = delete;
  Terminal& operator=(const Terminal&) = delete;

  std::FILE* file() const { return file_; }
  // Everything up to a last line "end", with plain line ends.
  std::string Shown(tools::Output& out) const {
    out.ShownLine("end");
    out.Flush();
    std::string shown;
    while (!shown.ends_with("end\r\n")) {
      char buffer[512];
      const ssize_t count = read(master_, buffer, sizeof(buffer));
      if (count <= 0) break;
      shown.append(buffer, static_cast<std::size_t>(count));
    }
    std::erase(shown, '\r');
    return shown.substr(0, shown.size() - 4);
  }

 private:
  const int master_;
  std::FILE* file_ = nullptr;
};

class OnTerminal : public ::testing::Test {
 protected:
  void SetUp() override {
    unsetenv("COLUMNS");
    unsetenv("NO_COLOR");
    setenv("TERM", "xterm", 1);
    ASSERT_NE(std::setlocale(LC_CTYPE, "C.UTF-8"), nullptr);
  }
  void TearDown() override { std::setlocale(LC_CTYPE, "C"); }

  static std::string TableOf(unsigned short columns) {
    const Terminal terminal(columns);
    tools::Output out(terminal.file(), Colored(tools::ColorChoice::kNever));
    tools::Table table({"NAME", "VALUE"});
    table.AddRow({"Speed", "42"});
    table.AddRow({"Note", "a long\tremark"});
    table.Print(out);
    return terminal.Shown(out);
  }
  static std::string LineOf(tools::ColorChoice choice) {
    const Terminal terminal(80);
    tools::Output out(terminal.file(), Colored(choice));
    tools::PrintProperty(kSpeedRow, tools::TextForm::kAssignment, out);
    return terminal.Shown(out);
  }
};

constexpr char kPlainLine[] = "Head/Motor/Speed=42\n";
constexpr char kColoredLine[] = "\x1b[36mHead/Motor/Speed\x1b[0m=42\n";

TEST_F(OnTerminal, ATableIsAsWideAsItNeedsToBe) {
  EXPECT_EQ(TableOf(80), "NAME   VALUE\nSpeed  42\nNote   a long\\tremark\n");
}

TEST_F(OnTerminal, ATableHasNoBlanksAtTheEndOfItsLines) {
  const Terminal terminal(80);
  tools::Output out(terminal.file(), Colored(tools::ColorChoice::kNever));
  tools::Table table({"NAME", "VALUE"});
  table.AddRow({"Speed", ""});
  table.Print(out);
  EXPECT_EQ(terminal.Shown(out), "NAME   VALUE\nSpeed\n");
}

TEST_F(OnTerminal, ATableKeepsToTheWidth) {
  EXPECT_EQ(TableOf(16), "NAME   VALUE\nSpeed  42\nNote   a long\\t…\n");
}

TEST_F(OnTerminal, COLUMNSGoesBeforeTheTerminalsOwnWidth) {
  setenv("COLUMNS", "16", 1);
  EXPECT_EQ(TableOf(80), "NAME   VALUE\nSpeed  42\nNote   a long\\t…\n");
}

TEST_F(OnTerminal, ColoursAreThereUnlessSomebodyObjects) {
  EXPECT_EQ(LineOf(tools::ColorChoice::kAuto), kColoredLine);
  EXPECT_EQ(LineOf(tools::ColorChoice::kNever), kPlainLine);
  setenv("NO_COLOR", "1", 1);
  EXPECT_EQ(LineOf(tools::ColorChoice::kAuto), kPlainLine);
  EXPECT_EQ(LineOf(tools::ColorChoice::kAlways), kColoredLine);
  unsetenv("NO_COLOR");
  setenv("TERM", "dumb", 1);
  EXPECT_EQ(LineOf(tools::ColorChoice::kAuto), kPlainLine);
}

TEST_F(OnTerminal, ATreeShortensItsLeaves) {
  const Terminal terminal(20);
  tools::Output out(terminal.file(), Colored(tools::ColorChoice::kNever));
  tools::PrintTree({&kSpeedRow, &kLimit, &kNote, &kOther}, out);
  EXPECT_EQ(terminal.Shown(out),
            "Head\n"
            "├─ Motor\n"
            "│  ├─ Speed = 42\n"
            "│  └─ Limit = 99\n"
            "└─ Texts\n"
            "   └─ Note = a long…\n"
            "Spare\n"
            "└─ Texts\n"
            "   └─ Note = x\\ty\n");
}

TEST_F(OnTerminal, ATreeIsTypedWhereTheLocaleHasNoLines) {
  std::setlocale(LC_CTYPE, "C");
  const Terminal terminal(80);
  tools::Output out(terminal.file(), Colored(tools::ColorChoice::kNever));
  tools::PrintTree({&kSpeedRow, &kNote}, out);
  EXPECT_EQ(terminal.Shown(out),
            "Head\n|- Motor\n|  `- Speed = 42\n`- Texts\n   `- Note = a long remark\n");
}

TEST(InAPipe, LinesHaveNoColourUnlessItIsAskedFor) {
  for (const tools::ColorChoice choice : {tools::ColorChoice::kAuto, tools::ColorChoice::kAlways}) {
    std::FILE* file = std::tmpfile();
    tools::Output out(file, Colored(choice));
    tools::PrintProperty(kSpeedRow, tools::TextForm::kAssignment, out);
    std::rewind(file);
    char line[64] = {};
    ASSERT_NE(std::fgets(line, sizeof(line), file), nullptr);
    EXPECT_STREQ(line, choice == tools::ColorChoice::kAlways ? kColoredLine : kPlainLine);
    std::fclose(file);
  }
}

TEST(InAPipe, LinesEndWithNulWhenItIsAskedFor) {
  std::FILE* file = std::tmpfile();
  tools::OutputOptions options;
  options.null_ends = true;
  tools::Output out(file, options);
  tools::PrintProperty(kSpeedRow, tools::TextForm::kValue, out);
  tools::PrintProperty(kLimit, tools::TextForm::kValue, out);
  std::rewind(file);
  constexpr char kEnded[] = {'4', '2', '\0', '9', '9', '\0'};
  char text[8] = {};
  EXPECT_EQ(std::fread(text, 1, sizeof(text), file), 6U);
  EXPECT_EQ(std::string(text, 6), std::string(kEnded, 6));
  std::fclose(file);
}

}  // namespace
}  // namespace valmere::test
