// From names to properties.
#include "tools/names/name_resolver.h"

#include <gtest/gtest.h>

#include <vector>

namespace valmere::test {
namespace {

using client::Property;

const std::vector<Property> kNamed{
    {"GG1", "General", "PG1", "Speed", "1", client::kSuccessful, "CG1", "Head"},
    {"GG1", "General", "PG2", "Name", "a", client::kSuccessful, "CG1", "Head"},
    {"GG2", "Motor", "PG3", "Speed", "2", client::kSuccessful, "CG1", "Head"},
    {"GG2", "Motor", "PG4", "Speed", "3", client::kSuccessful, "CG2", "Spare Head"},
    {"GG3", "On/Off", "PG5", "A/B", "4", client::kSuccessful, "CG3", "I/O"},
};

// The number of the property that a name means; the exit code below 0 if it means none.
int Meaning(std::string_view name) {
  const auto resolved = tools::Resolve(name, kNamed);
  if (const tools::Failure* failure = std::get_if<tools::Failure>(&resolved)) return -failure->code;
  return static_cast<int>(std::get<const Property*>(resolved) - kNamed.data());
}

TEST(NameResolver, TakesANameThatIsTheOnlyOneOfItsKind) {
  EXPECT_EQ(Meaning("Name"), 1);
}

TEST(NameResolver, TakesAGroupAndAName) {
  EXPECT_EQ(Meaning("General/Speed"), 0);
  EXPECT_EQ(Meaning("General/Name"), 1);
}

TEST(NameResolver, TakesAComponentAGroupAndAName) {
  EXPECT_EQ(Meaning("Head/Motor/Speed"), 2);
  EXPECT_EQ(Meaning("Spare Head/Motor/Speed"), 3);
}

TEST(NameResolver, TakesGuidsForEachPart) {
  EXPECT_EQ(Meaning("PG3"), 2);
  EXPECT_EQ(Meaning("GG1/PG1"), 0);
  EXPECT_EQ(Meaning("GG1/Speed"), 0);
  EXPECT_EQ(Meaning("Motor/PG4"), 3);
  EXPECT_EQ(Meaning("CG2/GG2/PG4"), 3);
  EXPECT_EQ(Meaning("CG2/Motor/Speed"), 3);
}

TEST(NameResolver, TakesNamesThatContainSlashes) {
  EXPECT_EQ(Meaning("A/B"), 4);
  EXPECT_EQ(Meaning("On/Off/A/B"), 4);
  EXPECT_EQ(Meaning("I/O/On/Off/A/B"), 4);
}

TEST(NameResolver, SaysThatThereIsNone) {
  for (const char* name : {"", "speed", "Speed ", "Motor", "Motor/", "/Speed", "Head/Speed",
                           "Head/Motor/", "Head//Speed", "General/Speed/"}) {
    EXPECT_EQ(Meaning(name), -tools::kExitNoSuchProperty) << name;
  }
  const auto resolved = tools::Resolve("bogus", kNamed);
  EXPECT_EQ(std::get<tools::Failure>(resolved).text, "no property \"bogus\"");
}

TEST(NameResolver, SuggestsWhatIsNear) {
  EXPECT_EQ(std::get<tools::Failure>(tools::Resolve("Nmae", kNamed)).text,
            "no property \"Nmae\"; did you mean\n  Head/General/Name");
  EXPECT_EQ(std::get<tools::Failure>(tools::Resolve("motor/sped", kNamed)).text,
            "no property \"motor/sped\"; did you mean\n"
            "  Head/Motor/Speed\n  Spare Head/Motor/Speed");
  EXPECT_EQ(std::get<tools::Failure>(tools::Resolve("Heat/General/Speed", kNamed)).text,
            "no property \"Heat/General/Speed\"; did you mean\n  Head/General/Speed");
  EXPECT_EQ(std::get<tools::Failure>(tools::Resolve("nam", kNamed)).text,
            "no property \"nam\"; did you mean\n  Head/General/Name");
}

TEST(NameResolver, NamesTheCandidatesOfAnAmbiguousName) {
  const auto resolved = tools::Resolve("Motor/Speed", kNamed);
  EXPECT_EQ(std::get<tools::Failure>(resolved).code, tools::kExitUsage);
  EXPECT_EQ(std::get<tools::Failure>(resolved).text,
            "\"Motor/Speed\" is ambiguous; it could be\n"
            "  Head/Motor/Speed  (CG1/GG2/PG3)\n"
            "  Spare Head/Motor/Speed  (CG2/GG2/PG4)");
  EXPECT_EQ(Meaning("Speed"), -tools::kExitUsage);
}

}  // namespace
}  // namespace valmere::test
