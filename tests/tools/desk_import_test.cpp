// What is exported from the real service, and imported into it.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>

#include "client/client.h"
#include "tests/tools/desk_fixture.h"

namespace valmere::test {
namespace {

using client::Client;
using client::Property;
using ::testing::AllOf;
using ::testing::EndsWith;
using ::testing::HasSubstr;

TEST_F(DeskTest, ImportsWhatItExported) {
  const auto publisher = Publish("Motion/Speed=\xff 42");
  const std::string period = "'Property Publishing Period in ms'";
  const Outcome outcome = RunShell(
      "set -e; cd $dir; $valmere export >a; $valmere set --verify Speed 1; $valmere set " + period +
      " 750; $valmere import a >set; $valmere export >b; cmp a b; cat set; echo again; $valmere "
      "import a");
  EXPECT_EQ(outcome.code, 0) << outcome.errors;
  EXPECT_THAT(outcome.output,
              AllOf(HasSubstr("Head/Motion/Speed=\xff 42\n"),
                    HasSubstr("Property Publishing Period in ms=500\n"), EndsWith("again\n")));
}

TEST_F(DeskTest, ImportsWhatItCanAndNamesTheRest) {
  const Client owner = Own();
  const std::string lines =
      R"({"value":"1","component_guid":"C1","group_guid":"G1","guid":"P2","name":"Weight"}
{"value":"600","component_guid":"955CFDC2-8EA6-478E-A927-7C870022EA03",)"
      R"("group_guid":"99A61D40-20CE-41EA-A579-EB92C6ED94C6",)"
      R"("guid":"DA821DC5-948D-4659-9B52-177E4C102129"})";
  std::ofstream(folder_.Path("lines")) << lines << "\n";
  EXPECT_EQ(Run({"import", "--dry-run", folder_.Path("lines")}).output,
            "Valmere/General/Property Publishing Period in ms=600\n");
  const Outcome outcome = Run({"import", folder_.Path("lines")});
  EXPECT_EQ(outcome.code, 4);
  EXPECT_EQ(outcome.output, "Valmere/General/Property Publishing Period in ms=600\n");
  EXPECT_EQ(outcome.errors,
            "valmere: no property C1/G1/Weight\nvalmere: 1 of the properties are not there\n");
}

TEST_F(DeskTest, ImportsNothingOfAFileThatItDoesNotUnderstand) {
  std::ofstream(folder_.Path("lines")) << "\n{\"value\":\"1\"}\n";
  const Outcome outcome = Run({"import", folder_.Path("lines")});
  EXPECT_EQ(outcome.code, 2);
  EXPECT_EQ(outcome.errors, "valmere: line 2 is no exported property\n");
}

TEST_F(DeskTest, ImportsNothingOfAFileThatItCannotRead) {
  const Outcome outcome = Run({"import", folder_.Path("")});
  EXPECT_EQ(outcome.code, 1);
  EXPECT_THAT(outcome.errors, HasSubstr("cannot read " + folder_.Path("")));
}

TEST_F(DeskTest, ImportsTheLaterOfTwoLinesForOneProperty) {
  const auto publisher = Publish("Motion/Speed=42");
  EXPECT_EQ(RunShell("cd $dir; $valmere export '*/Speed' >a; sed s/42/41/ a | cat - a >b").code, 0);
  const Outcome outcome = Run({"import", folder_.Path("b")});
  EXPECT_EQ(outcome.code, 0);
  EXPECT_EQ(outcome.output, "");
  EXPECT_EQ(Run({"get", "Speed"}).output, "42\n");
}

TEST_F(DeskTest, ImportsWithTimeOutWhenTheOwnerDoesNothing) {
  const Client owner = Own();
  std::ofstream(folder_.Path("lines"))
      << R"({"value":"1","component_guid":"C1","group_guid":"G1","guid":"P1"})";
  const Outcome outcome = Run({"--timeout", "1", "import", folder_.Path("lines")});
  EXPECT_EQ(outcome.code, 6);
  EXPECT_THAT(outcome.errors, HasSubstr("  Head/Motion/Speed\n"));
}

}  // namespace
}  // namespace valmere::test
