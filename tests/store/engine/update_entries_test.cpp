#include "store/engine/update_entries.h"

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <string>
#include <string_view>

#include "tests/store/engine/engine_fixture.h"
#include "tests/support/allocations.h"
#include "tests/support/frames.h"

namespace valmere::test {
namespace {

const std::atomic<bool> kWanted{false};

bool IsWanted() {
  return false;
}

// The record whose text is EntryText{.guid = guid, .status = status, .value = value}.
PropertyResponseRecord Record(std::string_view guid, std::string_view value = "V",
                              std::string_view status = kStatusSuccessful) {
  return {"G", "Group", guid, "Name", value, status, "C", "Client"};
}

// The frame for these keys; empty when there is none.
std::string FrameFor(UpdateEntries& entries, UpdateEntries::Keys& keys) {
  UpdateEntries::Keys gone;
  const SharedFrame frame = entries.FrameFor(keys, gone, IsWanted);
  return frame ? *frame : std::string();
}

TEST(UpdateEntries, GivesAllInTheirOrder) {
  UpdateEntries entries(kWanted);
  EXPECT_TRUE(entries.empty());
  entries.Append(Record("2"));
  entries.Append(Record("1", "", kGone));
  entries.Append(Record("2", "W"));
  EXPECT_EQ(3u, entries.size());
  EXPECT_EQ(FrameOf(Responses({{.guid = "2"},
                               {.guid = "1", .status = kGone, .value = ""},
                               {.guid = "2", .value = "W"}})),
            *entries.WholeFrame());
}

TEST(UpdateEntries, RendersAnEntryOnce) {
  UpdateEntries entries(kWanted);
  entries.Append(Record("1"));
  const std::string& frame = *entries.WholeFrame();
  // A mark on it would not outlive a second rendering.
  char& last_of_the_entry = const_cast<std::string&>(frame)[frame.size() - 3];
  last_of_the_entry = '!';
  entries.Append(Record("2"));
  EXPECT_NE(std::string::npos, entries.WholeFrame()->find("!,{"));
  UpdateEntries::Keys keys{"C:G:1"};
  EXPECT_EQ('!', FrameFor(entries, keys).end()[-3]);
}

TEST(UpdateEntries, GivesThoseWithTheKeysInTheirOrder) {
  UpdateEntries entries(kWanted);
  for (const char* guid : {"3", "1", "2", "3"})
    entries.Append(Record(guid));
  UpdateEntries::Keys keys{"C:G:2", "C:G:3", "C:G:4", "D:G:1", "C:G:"};
  const UpdateEntries::Keys before = keys;
  EXPECT_EQ(FrameOf(Responses({{.guid = "3"}, {.guid = "2"}, {.guid = "3"}})),
            FrameFor(entries, keys));
  EXPECT_EQ(before, keys);
}

TEST(UpdateEntries, GivesNoFrameWhenNoKeyFits) {
  UpdateEntries entries(kWanted);
  UpdateEntries::Keys keys{"C:G:2"};
  EXPECT_EQ("", FrameFor(entries, keys));
  entries.Append(Record("1"));
  EXPECT_EQ("", FrameFor(entries, keys));
}

TEST(UpdateEntries, TakesTheKeyOfAPropertyThatIsGone) {
  UpdateEntries entries(kWanted);
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
  UpdateEntries entries(kWanted);
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
  UpdateEntries entries(kWanted);
  entries.Append(Record("1"));
  entries.WholeFrame();
  entries.Clear();
  EXPECT_TRUE(entries.empty());
  EXPECT_EQ(FrameOf(Responses({})), *entries.WholeFrame());
  UpdateEntries::Keys keys{"C:G:1"};
  EXPECT_EQ("", FrameFor(entries, keys));
  entries.Append(Record("2"));
  EXPECT_EQ(FrameOf(Responses({{.guid = "2"}})), *entries.WholeFrame());
}

TEST(UpdateEntries, GivesTheSameFrameForTheSameEntries) {
  UpdateEntries::Keys gone;
  UpdateEntries entries(kWanted);
  for (const char* guid : {"1", "2", "3"})
    entries.Append(Record(guid));
  UpdateEntries::Keys some{"C:G:1", "C:G:3"}, with_more{"C:G:1", "C:G:3", "C:G:4"};
  UpdateEntries::Keys others{"C:G:2"}, all{"C:G:1", "C:G:2", "C:G:3"};
  const SharedFrame frame = entries.FrameFor(some, gone, IsWanted);
  EXPECT_EQ(frame, entries.FrameFor(with_more, gone, IsWanted));
  EXPECT_EQ(FrameOf(Responses({{.guid = "2"}})), *entries.FrameFor(others, gone, IsWanted));
  EXPECT_EQ(FrameOf(Responses({{.guid = "1"}, {.guid = "3"}})), *frame) << "it is held still";
  EXPECT_EQ(entries.WholeFrame(), entries.FrameFor(all, gone, IsWanted));
  EXPECT_EQ(entries.WholeFrame(), entries.WholeFrame());
}

TEST(UpdateEntries, UseTheMemoryOfFramesThatWereLetGo) {
  UpdateEntries::Keys gone;
  UpdateEntries entries(kWanted);
  UpdateEntries::Keys keys{"C:G:1"};
  const auto fill = [&] {
    entries.Clear();
    entries.Append(Record("1"));
    entries.Append(Record("2"));
  };
  fill();
  const char* const whole = entries.WholeFrame()->data();
  const char* const picked = entries.FrameFor(keys, gone, IsWanted)->data();
  fill();
  EXPECT_EQ(whole, entries.WholeFrame()->data());
  EXPECT_EQ(picked, entries.FrameFor(keys, gone, IsWanted)->data());
}

TEST(UpdateEntries, LeaveFramesThatAreHeldAlone) {
  UpdateEntries::Keys gone;
  UpdateEntries entries(kWanted);
  UpdateEntries::Keys keys{"C:G:1"};
  entries.Append(Record("1"));
  entries.Append(Record("2"));
  const SharedFrame whole = entries.WholeFrame();
  const SharedFrame picked = entries.FrameFor(keys, gone, IsWanted);
  entries.Clear();
  entries.Append(Record("1", "W"));
  entries.Append(Record("2", "W"));
  EXPECT_NE(whole->data(), entries.WholeFrame()->data());
  EXPECT_NE(picked->data(), entries.FrameFor(keys, gone, IsWanted)->data());
  EXPECT_EQ(FrameOf(Responses({{.guid = "1"}, {.guid = "2"}})), *whole);
  EXPECT_EQ(FrameOf(Responses({{.guid = "1"}})), *picked);
}

TEST(UpdateEntries, GivesTheMemoryOfABurstBack) {
  UpdateEntries entries(kWanted);
  const std::size_t before = BytesInUse();
  for (int i = 0; i < 10'000; ++i)
    entries.Append(Record("1"));
  EXPECT_LT(1'000'000u, entries.WholeFrame()->size());
  entries.Clear();
  EXPECT_GT(100'000u, BytesInUse() - before);
}

TEST(UpdateEntries, StayAsTheyAreWhenThereIsNoMemoryForOneMore) {
  UpdateEntries entries(kWanted);
  entries.Append(Record("1"));
  const std::string guid(100, '2');
  FailEachAllocation([&] { entries.Append(Record(guid)); },
                     [&] {
                       EXPECT_EQ(1u, entries.size());
                       EXPECT_EQ(FrameOf(Responses({{.guid = "1"}})), *entries.WholeFrame());
                     });
  EXPECT_EQ(FrameOf(Responses({{.guid = "1"}, {.guid = guid}})), *entries.WholeFrame());
}

TEST(UpdateEntries, LeaveTheKeysAsTheyAreWhenThereIsNoMemoryForTheirText) {
  UpdateEntries entries(kWanted);
  const std::string value(100'000, 'x');
  entries.Append({"G", "Group", "1", "Name", value, kStatusNoLongerAvailable, "C", "Client"});
  entries.Append(Record("2", value));
  UpdateEntries::Keys keys{"C:G:1", "C:G:2"};
  entries.Append(Record("3"));  // so that it isn't the whole frame
  UpdateEntries::Keys gone;
  FailEachAllocation([&] { entries.FrameFor(keys, gone, IsWanted); },
                     [&] { EXPECT_EQ(2u, keys.size()); });
  EXPECT_EQ(UpdateEntries::Keys{"C:G:2"}, keys);
}

// The bytes of the frame with one entry of an empty value.
std::size_t BytesWithoutValue(std::string_view status = kStatusSuccessful) {
  return FrameOf(Responses({{.status = status, .value = ""}})).size();
}

TEST(UpdateEntries, TakeEntriesUntilTheFrameHasTheMostBytes) {
  const std::string value(UpdateEntries::kMostBytes - BytesWithoutValue(), 'x');
  UpdateEntries full(kWanted);
  EXPECT_FALSE(full.Append(Record("P", value + "x")));
  EXPECT_TRUE(full.Append(Record("P", value)));
  EXPECT_FALSE(full.Append(Record("P", "")));
  EXPECT_EQ(1u, full.size());
  EXPECT_EQ(UpdateEntries::kMostBytes, full.WholeFrame()->size());
}

TEST(UpdateEntries, KeepSomeRoomForWhatIsGone) {
  const std::string value(UpdateEntries::kMostBytes - BytesWithoutValue(), 'x');
  UpdateEntries entries(kWanted);
  EXPECT_TRUE(entries.Append(Record("1", value)));
  EXPECT_TRUE(entries.Append(Record("1", "", kGone)));
  EXPECT_FALSE(entries.Append(Record("2", "")));
  while (entries.Append(Record("1", std::string(10'000, 'x'), kGone))) {
  }
  const std::size_t most = UpdateEntries::kMostBytes + UpdateEntries::kReservedBytes;
  EXPECT_LT(most - 20'000, entries.WholeFrame()->size());
  EXPECT_GE(most, entries.WholeFrame()->size());
}

TEST(UpdateEntries, RefusesWhatComesAfterTheMostThatAPeriodTakes) {
  UpdateEntries entries(kWanted);
  const std::string value(UpdateEntries::kMostBytes / 4 - 1000, 'x');
  for (int i = 0; i < 4; ++i)
    EXPECT_TRUE(entries.Append(Record("1", value)));
  EXPECT_FALSE(entries.Append(Record("2", value)));
  EXPECT_EQ(4u, entries.size());
  UpdateEntries::Keys keys{"C:G:2"};
  EXPECT_EQ("", FrameFor(entries, keys));
  entries.Clear();
  EXPECT_TRUE(entries.Append(Record("2")));
}

TEST(UpdateEntries, LeaveOffForASubscriberThatHasGone) {
  UpdateEntries entries(kWanted);
  entries.Append(Record("1", "V", kGone));
  for (int i = 0; i < 1000; ++i)
    entries.Append(Record("2"));
  UpdateEntries::Keys keys{"C:G:1", "C:G:2"};
  int asked = 0;
  UpdateEntries::Keys gone;
  EXPECT_EQ(nullptr, entries.FrameFor(keys, gone, [&] { return ++asked == 2; }));
  EXPECT_EQ(2, asked);
  EXPECT_EQ((UpdateEntries::Keys{"C:G:1", "C:G:2"}), keys);
}

TEST(UpdateEntries, LeaveOffWhenThePublisherStops) {
  std::atomic<bool> stop{false};
  UpdateEntries entries(stop);
  entries.Append(Record("1", "V", kGone));
  stop = true;
  EXPECT_FALSE(entries.Append(Record("1")));
  EXPECT_EQ(1u, entries.size());
  UpdateEntries::Keys keys{"C:G:1"};
  UpdateEntries::Keys gone;
  EXPECT_EQ(nullptr, entries.FrameFor(keys, gone, IsWanted));
  EXPECT_EQ((UpdateEntries::Keys{"C:G:1"}), keys);
}

}  // namespace
}  // namespace valmere::test
