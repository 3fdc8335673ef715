// What is offered for a word, by a command tree of the test's own.
#include "tools/completion/completion.h"

#include <CLI/CLI.hpp>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>

#include "tests/client/fake_service.h"
#include "tests/tools/command_run.h"
#include "tools/completion/completion_names.h"

namespace valmere::test {
namespace {

using client::Property;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

const std::vector<Property> kProperties{
    {"GG1", "General", "PG1", "Speed", "1", client::kSuccessful, "CG1", "Head"},
    {"GG1", "General", "PG2", "OS Version", "a", client::kSuccessful, "CG1", "Head"},
    {"GG2", "Motor", "PG3", "Speed", "2", client::kSuccessful, "CG1", "Head"},
    {"GG2", "Motor", "PG4", "Speed", "3", client::kSuccessful, "CG2", "Spare Head"},
    {"GG3", "On/Off", "PG5", "A/B", "4", client::kSuccessful, "CG3", "I/O"},
    {"GG4", "Twin", "PG6", "Same", "5", client::kSuccessful, "CG4", "Two"},
    {"GG4", "Twin", "PG6", "Same", "6", client::kSuccessful, "CG5", "Two"},
    {"GG5", "Odd", "PG7", "line\nfeed", "7", client::kSuccessful, "CG6", "Odd"},
    {"GG5", "Odd", "PG8", "-dash", "8", client::kSuccessful, "CG6", "Odd"},
};

TEST(NameCandidates, AreTheShortestThatAreNotAmbiguous) {
  EXPECT_THAT(
      tools::NameCandidates("", kProperties),
      ElementsAre("-dash", "A/B", "CG4/GG4/PG6", "CG5/GG4/PG6", "CG6/GG5/PG7", "General/Speed",
                  "Head/Motor/Speed", "OS Version", "Spare Head/Motor/Speed"));
}

TEST(NameCandidates, FollowTheSlashesThatAreTyped) {
  EXPECT_THAT(tools::NameCandidates("OS", kProperties), ElementsAre("OS Version"));
  EXPECT_THAT(tools::NameCandidates("Gen", kProperties),
              ElementsAre("General/OS Version", "General/Speed"));
  EXPECT_THAT(tools::NameCandidates("Head/G", kProperties),
              ElementsAre("Head/General/OS Version", "Head/General/Speed"));
  EXPECT_THAT(tools::NameCandidates("Motor/", kProperties), IsEmpty());
  EXPECT_THAT(tools::NameCandidates("A/", kProperties), ElementsAre("A/B"));
  EXPECT_THAT(tools::NameCandidates("On/Off/", kProperties), ElementsAre("On/Off/A/B"));
}

TEST(NameCandidates, AreGuidsOnlyWhereNoNameBeginsSo) {
  EXPECT_THAT(tools::NameCandidates("CG2/", kProperties), ElementsAre("CG2/GG2/PG4"));
  const std::vector<Property> confusing{
      {"GG1", "General", "PG1", "CG", "1", client::kSuccessful, "CG1", "Head"},
      {"GG1", "General", "PG2", "Name", "2", client::kSuccessful, "CG1", "Head"},
  };
  EXPECT_THAT(tools::NameCandidates("CG", confusing), ElementsAre("CG"));
  EXPECT_THAT(tools::NameCandidates("CG1", confusing), ElementsAre("CG1/GG1/PG1", "CG1/GG1/PG2"));
}

TEST(NameCandidates, AreNoNameThatIsAnothersGuid) {
  const std::vector<Property> confusing{
      {"GG1", "General", "PG1", "PG2", "1", client::kSuccessful, "CG1", "Head"},
      {"GG1", "General", "PG2", "Name", "2", client::kSuccessful, "CG1", "Head"},
  };
  EXPECT_THAT(tools::NameCandidates("PG", confusing), IsEmpty());
  EXPECT_THAT(tools::NameCandidates("Gen", confusing), ElementsAre("General/Name", "General/PG2"));
}

class CompletionTest : public ::testing::Test {
 protected:
  CompletionTest() {
    app_.fallthrough();
    app_.add_option("--socket", text_)->type_name("PATH");
    app_.add_option("--color", text_)->type_name("auto|always|never");
    app_.add_option("--secret", text_)->group("");
    app_.add_flag("-0,--null");
    CLI::App* get = app_.add_subcommand("get");
    get->add_option("NAME", texts_)->allow_extra_args(false);
    get->add_option("--default", text_);
    CLI::App* set = app_.add_subcommand("set");
    set->add_option("NAME", text_);
    set->add_option("VALUE", text_);
    app_.add_subcommand("publish")->add_option("NAME=VALUE", texts_);
    app_.add_subcommand("wait")->add_option("NAME[=VALUE]", text_);
    CLI::App* file = app_.add_subcommand("propfile");
    file->add_subcommand("show")->add_option("FILE", text_);
    file->add_subcommand("seal")->add_option("FILE", text_);
    app_.add_subcommand("hidden")->group("");
  }
  std::vector<std::string> For(const std::vector<std::string>& words) {
    return tools::Candidates(app_, words, "/usual", [this](const std::string& socket) {
      asked_ = socket;
      return kProperties;
    });
  }

  CLI::App app_;
  std::string text_;
  std::vector<std::string> texts_;
  std::string asked_;
};

TEST_F(CompletionTest, OffersCommands) {
  EXPECT_THAT(For({""}), ElementsAre("get", "propfile", "publish", "set", "wait"));
  EXPECT_THAT(For({"p"}), ElementsAre("propfile", "publish"));
  EXPECT_THAT(For({"--socket", "x", "-0", "g"}), ElementsAre("get"));
  EXPECT_THAT(For({"propfile", ""}), ElementsAre("seal", "show"));
  EXPECT_THAT(For({"bogus", "g"}), IsEmpty());
}

TEST_F(CompletionTest, OffersOptionsOfTheCommandAndOfAll) {
  EXPECT_THAT(For({"get", "-"}),
              ElementsAre("--color", "--default", "--help", "--null", "--socket", "-0", "-h"));
  EXPECT_THAT(For({"--s"}), ElementsAre("--socket"));
  EXPECT_THAT(For({"get", "--", "--s"}), IsEmpty());
}

TEST_F(CompletionTest, OffersTheChoicesOfAnOption) {
  EXPECT_THAT(For({"--color", "a"}), ElementsAre("always", "auto"));
  EXPECT_THAT(For({"get", "--color=n"}), ElementsAre("--color=never"));
}

TEST_F(CompletionTest, OffersNothingForAnyText) {
  EXPECT_THAT(For({"get", "--default", ""}), IsEmpty());
  EXPECT_THAT(For({"set", "Speed", ""}), IsEmpty());
  EXPECT_THAT(For({"publish", ""}), IsEmpty());
  EXPECT_THAT(For({"--bogus=", "--null="}), IsEmpty());
}

TEST_F(CompletionTest, OffersPropertiesWhereNamesAreDue) {
  EXPECT_THAT(For({"get", "OS"}), ElementsAre("OS Version"));
  EXPECT_THAT(For({"get", "x", "--default", "y", "z", "OS"}), ElementsAre("OS Version"));
  EXPECT_THAT(For({"set", "-0", "OS"}), ElementsAre("OS Version"));
  EXPECT_THAT(For({"wait", "A"}), ElementsAre("A/B"));
}

TEST_F(CompletionTest, OffersNoNameThatWouldBeAnOption) {
  EXPECT_THAT(For({"get", "--", "-"}), ElementsAre("-dash"));
  EXPECT_THAT(For({"get", ""}), ::testing::Not(::testing::Contains("-dash")));
}

TEST_F(CompletionTest, AsksTheServiceThatIsNamed) {
  For({"get", ""});
  EXPECT_EQ(asked_, "/usual");
  For({"--socket", "/a", "get", ""});
  EXPECT_EQ(asked_, "/a");
  For({"get", "--socket=/b", ""});
  EXPECT_EQ(asked_, "/b");
}

TEST_F(CompletionTest, OffersFiles) {
  const TemporaryFolder folder;
  std::filesystem::create_directory(folder.Path("inner folder"));
  WriteBytes(folder.Path("index.ini"), "");
  WriteBytes(folder.Path(".hidden"), "");
  EXPECT_THAT(For({"propfile", "show", folder.Path("in")}),
              ElementsAre(folder.Path("index.ini"), folder.Path("inner folder/")));
  EXPECT_THAT(For({"propfile", "show", folder.Path("")}),
              ElementsAre(folder.Path("index.ini"), folder.Path("inner folder/")));
  EXPECT_THAT(For({"propfile", "show", folder.Path(".")}), ElementsAre(folder.Path(".hidden")));
  EXPECT_THAT(For({"--socket=" + folder.Path("ind")}),
              ElementsAre("--socket=" + folder.Path("index.ini")));
  EXPECT_THAT(For({"propfile", "show", folder.Path("none/x")}), IsEmpty());
}

TEST_F(CompletionTest, GivesUpOnAServiceThatDoesNotAnswer) {
  const FakeService service([](const FakeConnection& connection) { connection.WaitForEnd(); });
  const auto start = std::chrono::steady_clock::now();
  EXPECT_THAT(tools::LiveProperties(service.path()), IsEmpty());
  EXPECT_LT(std::chrono::steady_clock::now() - start, kPatience / 2);
  EXPECT_THAT(tools::LiveProperties("/nonexistent/PRN1"), IsEmpty());
}

}  // namespace
}  // namespace valmere::test
