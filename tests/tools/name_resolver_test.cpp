// From names to properties.
#include "tools/names/name_resolver.h"

#include <gtest/gtest.h>

#include <vector>

namespace valmere::tools {
namespace {

using client::Property;

const std::vector<Property> kProperties{
    {"GG1", "General", "PG1", "Speed", "1", client::kSuccessful, "CG1", "Head"},
    {"GG1", "General", "PG2", "Name", "a", client::kSuccessful, "CG1", "Head"},
    {"GG2", "Motor", "PG3", "Speed", "2", client::kSuccessful, "CG1", "Head"},
    {"GG2", "Motor", "PG4", "Speed", "3", client::kSuccessful, "CG2", "Spare Head"},
    {"GG3", "On/Off", "PG5", "A/B", "4", client::kSuccessful, "CG3", "I/O"},
};

// The number of the property that a name means; the exit code below 0 if it means none.
int Meaning(std::string_view name) {
  const auto resolved = Resolve(name, kProperties);
  if (const Failure* failure = std::get_if<Failure>(&resolved)) return -failure->code;
  return static_cast<int>(std::get<const Property*>(resolved) - kProperties.data());
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
    EXPECT_EQ(Meaning(name), -kExitNoSuchProperty) << name;
  }
  const auto resolved = Resolve("bogus", kProperties);
  EXPECT_EQ(std::get<Failure>(resolved).text, "no property \"bogus\"");
}

TEST(NameResolver, SuggestsWhatIsNear) {
  EXPECT_EQ(std::get<Failure>(Resolve("Nmae", kProperties)).text,
            "no property \"Nmae\"; did you mean\n  Head/General/Name");
  EXPECT_EQ(std::get<Failure>(Resolve("motor/sped", kProperties)).text,
            "no property \"motor/sped\"; did you mean\n"
            "  Head/Motor/Speed\n  Spare Head/Motor/Speed");
  EXPECT_EQ(std::get<Failure>(Resolve("Heat/General/Speed", kProperties)).text,
            "no property \"Heat/General/Speed\"; did you mean\n  Head/General/Speed");
  EXPECT_EQ(std::get<Failure>(Resolve("nam", kProperties)).text,
            "no property \"nam\"; did you mean\n  Head/General/Name");
}

TEST(NameResolver, NamesTheCandidatesOfAnAmbiguousName) {
  const auto resolved = Resolve("Motor/Speed", kProperties);
  EXPECT_EQ(std::get<Failure>(resolved).code, kExitUsage);
  EXPECT_EQ(std::get<Failure>(resolved).text,
            "\"Motor/Speed\" is ambiguous; it could be\n"
            "  Head/Motor/Speed  (CG1/GG2/PG3)\n"
            "  Spare Head/Motor/Speed  (CG2/GG2/PG4)");
  EXPECT_EQ(Meaning("Speed"), -kExitUsage);
}

}  // namespace
}  // namespace valmere::tools
