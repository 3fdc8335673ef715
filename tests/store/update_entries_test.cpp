#include "store/update_entries.h"

#include <string>
#include <string_view>

#include <gtest/gtest.h>

#include "tests/store/engine_fixture.h"
#include "tests/support/allocations.h"
#include "tests/support/frames.h"

namespace valmere {
namespace {

using testing::EntryText;
using testing::FrameOf;
using testing::Responses;

using testing::kGone;

// The record whose text is EntryText{.guid = guid, .status = status, .value = value}.
PropertyResponseRecord Record(std::string_view guid, std::string_view value = "V",
                              std::string_view status = kStatusSuccessful) {
  return {"G", "Group", guid, "Name", value, status, "C", "Client"};
}

// The frame for these keys; empty when there is none.
std::string FrameFor(const UpdateEntries& entries, UpdateEntries::Keys& keys) {
  std::string frame = "what it held before";
  return entries.FrameFor(keys, frame) ? frame : std::string();
}

TEST(UpdateEntries, GivesAllInTheirOrder) {
  UpdateEntries entries;
  EXPECT_TRUE(entries.empty());
  entries.Append(Record("2"));
  entries.Append(Record("1", "", kGone));
  entries.Append(Record("2", "W"));
  EXPECT_EQ(3u, entries.size());
  EXPECT_EQ(FrameOf(Responses({{.guid = "2"},
                               {.guid = "1", .status = kGone, .value = ""},
                               {.guid = "2", .value = "W"}})),
            entries.WholeFrame());
}

TEST(UpdateEntries, RendersTheWholeFrameOnce) {
  UpdateEntries entries;
  entries.Append(Record("1"));
  // A mark on it would not outlive a second rendering.
  const_cast<std::string&>(entries.WholeFrame()).back() = '!';
  EXPECT_EQ('!', entries.WholeFrame().back());
  entries.Append(Record("2"));
  EXPECT_EQ(FrameOf(Responses({{.guid = "1"}, {.guid = "2"}})), entries.WholeFrame());
}

TEST(UpdateEntries, GivesThoseWithTheKeysInTheirOrder) {
  UpdateEntries entries;
  for (const char* guid : {"3", "1", "2", "3"})
    entries.Append(Record(guid));
  UpdateEntries::Keys keys{"C:G:2", "C:G:3", "C:G:4", "D:G:1", "C:G:"};
  const UpdateEntries::Keys before = keys;
  EXPECT_EQ(FrameOf(Responses({{.guid = "3"}, {.guid = "2"}, {.guid = "3"}})),
            FrameFor(entries, keys));
  EXPECT_EQ(before, keys);
}

TEST(UpdateEntries, GivesNoFrameWhenNoKeyFits) {
  UpdateEntries entries;
  UpdateEntries::Keys keys{"C:G:2"};
  EXPECT_EQ("", FrameFor(entries, keys));
  entries.Append(Record("1"));
  EXPECT_EQ("", FrameFor(entries, keys));
}

TEST(UpdateEntries, TakesTheKeyOfAPropertyThatIsGone) {
  UpdateEntries entries;
  entries.Append(Record("1"));
  entries.Append(Record("1", "V", kGone));
  entries.Append(Record("1", "after"));
  UpdateEntries::Keys keys{"C:G:1", "C:G:2"};
  EXPECT_EQ(FrameOf(Responses({{.guid = "1"}, {.guid = "1", .status = kGone}})),
            FrameFor(entries, keys));
  EXPECT_EQ((UpdateEntries::Keys{"C:G:2"}), keys);
  EXPECT_EQ("", FrameFor(entries, keys));
}

TEST(UpdateEntries, EscapesTextsButNotKeys) {
  UpdateEntries entries;
  entries.Append({"g\"", "gs\n", "p\\", "ns", "v\x01", kStatusSuccessful, "c\"", "cs"});
  UpdateEntries::Keys keys{"c\":g\":p\\"};
  EXPECT_EQ(FrameOf(Responses({{.component = R"(c\")",
                                .component_string = "cs",
                                .group_guid = R"(g\")",
                                .group_string = R"(gs\n)",
                                .guid = R"(p\\)",
                                .name_string = "ns",
                                .value = R"(v\u0001)"}})),
            FrameFor(entries, keys));
}

TEST(UpdateEntries, ForgetsWhatWasCleared) {
  UpdateEntries entries;
  entries.Append(Record("1"));
  entries.WholeFrame();
  entries.Clear();
  EXPECT_TRUE(entries.empty());
  EXPECT_EQ(FrameOf(Responses({})), entries.WholeFrame());
  UpdateEntries::Keys keys{"C:G:1"};
  EXPECT_EQ("", FrameFor(entries, keys));
  entries.Append(Record("2"));
  EXPECT_EQ(FrameOf(Responses({{.guid = "2"}})), entries.WholeFrame());
}

TEST(UpdateEntries, GivesTheMemoryOfABurstBack) {
  UpdateEntries entries;
  const std::size_t before = testing::BytesInUse();
  for (int i = 0; i < 10'000; ++i)
    entries.Append(Record("1"));
  EXPECT_LT(1'000'000u, entries.WholeFrame().size());
  entries.Clear();
  EXPECT_GT(100'000u, testing::BytesInUse() - before);
}

TEST(UpdateEntries, StayAsTheyAreWhenThereIsNoMemoryForOneMore) {
  UpdateEntries entries;
  entries.Append(Record("1"));
  const std::string guid(100, '2');
  testing::FailEachAllocation([&] { entries.Append(Record(guid)); },
                              [&] {
                                EXPECT_EQ(1u, entries.size());
                                EXPECT_EQ(FrameOf(Responses({{.guid = "1"}})),
                                          entries.WholeFrame());
                              });
  EXPECT_EQ(FrameOf(Responses({{.guid = "1"}, {.guid = guid}})), entries.WholeFrame());
}

TEST(UpdateEntries, LeaveTheKeysAsTheyAreWhenThereIsNoMemoryForTheirText) {
  UpdateEntries entries;
  const std::string value(100'000, 'x');
  entries.Append({"G", "Group", "1", "Name", value, kStatusNoLongerAvailable, "C", "Client"});
  entries.Append(Record("2", value));
  UpdateEntries::Keys keys{"C:G:1", "C:G:2"};
  std::string frame;
  testing::FailEachAllocation([&] { entries.FrameFor(keys, frame); },
                              [&] {
                                EXPECT_EQ(2u, keys.size());
                                std::string().swap(frame);
                              });
  EXPECT_EQ(UpdateEntries::Keys{"C:G:2"}, keys);
}

TEST(UpdateEntries, TakesTheEntryThatReachesTheMostAndNoneAfterIt) {
  const std::size_t others = EntryText{.value = ""}.Text().size();
  const std::string value(UpdateEntries::kMostBytes - others, 'x');
  UpdateEntries full;
  EXPECT_TRUE(full.Append(Record("P", value)));
  EXPECT_FALSE(full.Append(Record("P")));
  UpdateEntries nearly_full;
  EXPECT_TRUE(nearly_full.Append(Record("P", std::string_view(value).substr(1))));
  EXPECT_TRUE(nearly_full.Append(Record("P")));
}

TEST(UpdateEntries, RefusesWhatComesAfterTheMostThatAPeriodTakes) {
  UpdateEntries entries;
  const std::string value(UpdateEntries::kMostBytes / 4, 'x');
  for (int i = 0; i < 4; ++i)
    EXPECT_TRUE(entries.Append(Record("1", value)));
  EXPECT_FALSE(entries.Append(Record("2")));
  EXPECT_EQ(4u, entries.size());
  UpdateEntries::Keys keys{"C:G:2"};
  EXPECT_EQ("", FrameFor(entries, keys));
  entries.Clear();
  EXPECT_TRUE(entries.Append(Record("2")));
}

}  // namespace
}  // namespace valmere
