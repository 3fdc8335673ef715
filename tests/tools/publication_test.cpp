// From NAME=VALUE to properties.
#include "tools/names/publication.h"

#include <gtest/gtest.h>

#include "tools/names/name_guid.h"

namespace valmere::test {
namespace {

using client::Property;

tools::PublishOptions With(std::vector<std::string> assignments) {
  tools::PublishOptions options;
  options.assignments = std::move(assignments);
  return options;
}

Property Only(const tools::PublishOptions& options) {
  const auto made = tools::MakePublication(options);
  const auto* publication = std::get_if<0>(&made);
  return publication != nullptr && publication->size() == 1 ? publication->front().property
                                                            : Property{};
}

tools::ExitCode CodeOf(const std::vector<std::string>& assignments) {
  const auto made = tools::MakePublication(With(assignments));
  const tools::Failure* failure = std::get_if<tools::Failure>(&made);
  return failure != nullptr ? failure->code : tools::kExitOk;
}

TEST(Publication, FillsInGroupAndComponent) {
  const Property property = Only(With({"Speed=42"}));
  EXPECT_EQ(property.component_name, "valmere");
  EXPECT_EQ(property.component, tools::NameGuid("component:valmere"));
  EXPECT_EQ(property.group_name, "Desk");
  EXPECT_EQ(property.group_guid, tools::NameGuid("group:Desk"));
  EXPECT_EQ(property.name, "Speed");
  EXPECT_EQ(property.guid, tools::NameGuid("property:" + property.group_guid + ":Speed"));
  EXPECT_EQ(property.value, "42");
  EXPECT_EQ(property.status, client::kSuccessful);
}

TEST(Publication, TakesGroupAndComponentFromTheName) {
  const Property two = Only(With({"Motor/Speed=42"}));
  EXPECT_EQ(two.component_name, "valmere");
  EXPECT_EQ(two.group_name, "Motor");
  const Property three = Only(With({"Head/Motor/Speed=42"}));
  EXPECT_EQ(three.component_name, "Head");
  EXPECT_EQ(three.component, tools::NameGuid("component:Head"));
  EXPECT_EQ(three.group_name, "Motor");
  EXPECT_EQ(three.name, "Speed");
}

TEST(Publication, CutsTheValueOffAtTheFirstEqualsSign) {
  EXPECT_EQ(Only(With({"Formula=a=b/c"})).value, "a=b/c");
  EXPECT_EQ(Only(With({"Formula=a=b/c"})).name, "Formula");
  EXPECT_EQ(Only(With({"Empty="})).value, "");
}

TEST(Publication, KeepsTheNameAsItWasTyped) {
  const auto made = tools::MakePublication(With({"Motor/Speed=1", "Colour=red"}));
  const auto& publication = std::get<0>(made);
  ASSERT_EQ(publication.size(), 2U);
  EXPECT_EQ(publication[0].name, "Motor/Speed");
  EXPECT_EQ(publication[1].name, "Colour");
}

TEST(Publication, UsesTheGuidThatWasGivenForTheDefaultComponentOnly) {
  tools::PublishOptions options = With({"Speed=1"});
  options.component = "Head";
  options.component_guid = "GUID";
  EXPECT_EQ(Only(options).component, "GUID");
  options.assignments = {"Other/Motor/Speed=1"};
  EXPECT_EQ(Only(options).component, tools::NameGuid("component:Other"));
}

TEST(Publication, RefusesOtherTexts) {
  for (const char* text : {"", "Speed", "=1", "/Speed=1", "Motor/=1", "//Speed=1", "a//c=1"}) {
    EXPECT_EQ(CodeOf({text}), tools::kExitUsage) << text;
  }
  EXPECT_EQ(CodeOf({"Speed=1", "Speed=2"}), tools::kExitUsage);
  EXPECT_EQ(CodeOf({"Speed=1", "Desk/Speed=2"}), tools::kExitUsage);
  EXPECT_EQ(CodeOf({"Speed=1", "Motor/Speed=2"}), tools::kExitOk);
}

}  // namespace
}  // namespace valmere::test
