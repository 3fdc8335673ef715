// The shells' completion scripts, each typed at in its own shell on a terminal: a candidate is
// right when the finished line gets the value of the property.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <memory>

#include "tests/client/fake_service.h"
#include "tests/tools/command_run.h"
#include "tests/tools/pseudo_terminal.h"

namespace valmere::test {
namespace {

using client::Property;
using ::testing::HasSubstr;

Property Named(const std::string& name, const std::string& value) {
  return {"G1", "Odd", "P-" + value, name, value, client::kSuccessful, "C1", "Print Head"};
}

// Values that no echo of a line holds.
const std::vector<Property> kTrickyProperties{
    Named("Top Speed", "value-of-speed"),
    Named("it's: 'so' a=b", "value-of-colons"),
    Named("$HOME* & (x)", "value-of-dollar"),
    Named("a/b\\\\c", "value-of-slash"),
    Named("one", "value-of-one"),
    Named("only", "value-of-only"),
};

void Answer(const FakeConnection& connection) {
  while (!connection.Receive().empty()) {
    connection.Send(ResponseText(kTrickyProperties));
  }
}

std::string ProgramNamed(const std::string& name) {
  for (const char* folder : {"/bin/", "/usr/bin/", "/usr/local/bin/"}) {
    if (access((folder + name).c_str(), X_OK) == 0) return folder + name;
  }
  return "";
}

// Purpose: a shell at a terminal, with the completion of valmere.
class Shell {
 public:
  Shell(const std::vector<std::string>& command, const std::string& socket,
        const TemporaryFolder& folder)
      : terminal_(command, {"TERM=vt100", "LC_ALL=C.UTF-8", "VALMERE_SOCKET=" + socket,
                            "HOME=" + folder.Path(""), "PATH=" + Folder() + ":/usr/bin:/bin",
                            "XDG_CONFIG_HOME=" + folder.Path("config"),
                            "XDG_DATA_HOME=" + folder.Path("data")}) {}

  // Types the line as it is, its tabs included, and waits until the command has printed `text`.
  void Expect(const std::string& line, const std::string& text) {
    SCOPED_TRACE(line);
    terminal_.Type(line + "\n");
    terminal_.Await(text);
  }

 private:
  static std::string Folder() { return std::filesystem::path(VALMERE).parent_path().string(); }

  PseudoTerminal terminal_;
};

class ShellCompletion : public ::testing::Test {
 protected:
  // What the three have in common.
  void CompleteInEveryQuote(Shell& shell) {
    shell.Expect("valmere get To\t", "value-of-speed");
    shell.Expect("valmere get 'To\t", "value-of-speed");
    shell.Expect("valmere get \"Odd/To\t", "value-of-speed");
    shell.Expect("valmere get Print\\ Head/Odd/To\t", "value-of-speed");
    shell.Expect("valmere get 'Print Head/Odd/To\t", "value-of-speed");
    shell.Expect("valmere get it\t", "value-of-colons");
    shell.Expect("valmere get it\\'s:\t", "value-of-colons");
    shell.Expect("valmere get it\\'s:\\ \\'so\\'\\ a=\t", "value-of-colons");
    shell.Expect("valmere get \"it's\t", "value-of-colons");
    shell.Expect("valmere get 'Odd/it\t", "value-of-colons");
    shell.Expect("valmere get Odd/\\$\t", "value-of-dollar");
    shell.Expect("valmere get '$\t", "value-of-dollar");
    shell.Expect("valmere get \"Odd/a\t", "value-of-slash");
    shell.Expect("valmere get a/\t", "value-of-slash");
    shell.Expect("valmere --time\t60 ge\tonl\t", "value-of-only");
  }
  void SetUp() override { std::filesystem::create_directory(folder_.Path("home")); }

  const TemporaryFolder folder_;
  const FakeService service_{Answer};
};

TEST_F(ShellCompletion, WorksInBash) {
  const std::string bash = ProgramNamed("bash");
  if (bash.empty()) GTEST_SKIP() << "no bash";
  WriteBytes(folder_.Path("rc"), "source " VALMERE_COMPLETIONS "/valmere.bash\necho 'rea''dy'\n");
  Shell shell({bash, "--noprofile", "--rcfile", folder_.Path("rc"), "-i"}, service_.path(),
              folder_);
  shell.Expect("", "ready");
  CompleteInEveryQuote(shell);
}

TEST_F(ShellCompletion, WorksInZsh) {
  const std::string zsh = ProgramNamed("zsh");
  if (zsh.empty()) GTEST_SKIP() << "no zsh";
  Shell shell({zsh, "-f", "-i"}, service_.path(), folder_);
  shell.Expect("fpath=(" VALMERE_COMPLETIONS
               " $fpath); autoload -Uz compinit; compinit -u -D; "
               "echo 'rea''dy'",
               "ready\r\n");
  CompleteInEveryQuote(shell);
}

TEST_F(ShellCompletion, WorksInFish) {
  const std::string fish = ProgramNamed("fish");
  if (fish.empty()) GTEST_SKIP() << "no fish";
  Shell shell({fish, "--no-config", "-i", "-C", "source " VALMERE_COMPLETIONS "/valmere.fish"},
              service_.path(), folder_);
  shell.Expect("echo 'rea''dy'", "ready\r\n");
  CompleteInEveryQuote(shell);
}

class BashCompletion : public ShellCompletion {
 protected:
  // What the script offers for a line whose end `piece` bash is about to replace.
  std::string Offered(const std::string& socket, const std::string& line,
                      const std::string& piece) const {
    WriteBytes(folder_.Path("script"),
               "source " VALMERE_COMPLETIONS
               "/valmere.bash\nCOMP_LINE=$1 COMP_POINT=${#1}\n"
               "_valmere \"" VALMERE "\" \"$2\"\nprintf '%s\\n' \"${COMPREPLY[@]}\"\n");
    Subprocess bash({ProgramNamed("bash"), folder_.Path("script"), line, piece},
                    {"VALMERE_SOCKET=" + socket, "LC_ALL=C.UTF-8"});
    EXPECT_EQ(bash.Wait(), 0) << bash.errors();
    EXPECT_EQ(bash.errors(), "");
    return bash.output();
  }
};

TEST_F(BashCompletion, OffersWhatGoesIntoThePlaceOfThePiece) {
  const std::string socket = service_.path();
  EXPECT_EQ(Offered(socket, "valmere get o", "o"), "one\nonly\n");
  EXPECT_EQ(Offered(socket, "valmere get it\\'s:", ""), "\\ \\'so\\'\\ a=b\n");
  EXPECT_EQ(Offered(socket, "valmere get \"$", "$"), "\\$HOME* & (x)\n");
  EXPECT_EQ(Offered(socket, "valmere get 'it", "it"), "it'\\''s: '\\''so'\\'' a=b\n");
  EXPECT_EQ(Offered(socket, "valmere --sock", "--sock"), "--socket\n");
  EXPECT_EQ(Offered(socket, "valmere propfile sh", "sh"), "show\n");
  EXPECT_EQ(Offered(socket, "valmere get bogus", "bogus"), "\n");
}

TEST_F(BashCompletion, IsSilentWhenTheServiceIsDown) {
  EXPECT_EQ(Offered("/nonexistent/PRN1", "valmere get o", "o"), "\n");
}

class CompletionCommand : public ShellCompletion {
 protected:
  std::string Printed(std::vector<std::string> words) const {
    words.insert(words.begin(), {VALMERE, "__complete"});
    Subprocess valmere(words, {"VALMERE_SOCKET=" + service_.path()});
    EXPECT_EQ(valmere.Wait(), 0);
    EXPECT_EQ(valmere.errors(), "");
    return valmere.output();
  }
};

TEST_F(CompletionCommand, PrintsOneCandidateALine) {
  EXPECT_EQ(Printed({"--", "get", "o"}), "one\nonly\n");
  EXPECT_EQ(Printed({"--", "get", "Print Head/Odd/T"}), "Print Head/Odd/Top Speed\n");
  EXPECT_EQ(Printed({"--", "frame", ""}), "decode\nencode\n");
  EXPECT_EQ(Printed({"--", "--socket=/nonexistent/PRN1", "get", "o"}), "");
  EXPECT_EQ(Printed({"--", "__"}), "");
}

TEST_F(CompletionCommand, SaysNothingWhenItIsAskedInAnotherWay) {
  EXPECT_EQ(Printed({}), "");
  EXPECT_EQ(Printed({"--"}), "");
  EXPECT_EQ(Printed({"get", "o"}), "");
  EXPECT_EQ(Printed({"--bash", "valmere"}), "");
}

}  // namespace
}  // namespace valmere::test
