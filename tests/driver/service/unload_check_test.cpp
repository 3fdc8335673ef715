#include "driver/service/unload_check.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>

#include "driver/sync/event_flags.h"
#include "driver/sync/worker_thread.h"
#include "store/property/string_property.h"
#include "tests/support/memory_file_system.h"

namespace valmere::test {
namespace {

constexpr platform::WidePathView kMarker = u"\\DriverUnloadSuccessful";
const std::string kFourBytes("\x00\x01\x02\x03", 4);

class UnloadCheckTest : public ::testing::Test {
 protected:
  std::optional<std::string> Marker() { return files_.Get(kMarker); }

  MemoryFileSystem files_;
};

TEST_F(UnloadCheckTest, WritesFourBytesWhenNothingIsLeft) {
  MarkCleanUnload(files_);
  EXPECT_EQ(Marker(), kFourBytes);
}

TEST_F(UnloadCheckTest, AddsFourBytesForEachCleanUnload) {
  files_.Put(kMarker, "older");
  MarkCleanUnload(files_);
  MarkCleanUnload(files_);
  EXPECT_EQ(Marker(), "older" + kFourBytes + kFourBytes);
}

TEST_F(UnloadCheckTest, WritesNothingWhileAWorkerThreadIsLeft) {
  {
    const WorkerThread left([] {}, 253);
    // A wrapper has event flags of its own or not; the thread alone must count.
    ASSERT_EQ(LiveWorkerThreads::Live(), 1u);
    MarkCleanUnload(files_);
  }
  EXPECT_EQ(Marker(), std::nullopt);
  EXPECT_EQ(files_.opens(), 0u);
}

TEST_F(UnloadCheckTest, WritesNothingWhileAnEventFlagObjectIsLeft) {
  {
    const EventFlags left(EventFlags::AutoClear::kNo);
    MarkCleanUnload(files_);
  }
  EXPECT_EQ(Marker(), std::nullopt);
}

TEST_F(UnloadCheckTest, WritesNothingWhileAPropertyIsLeft) {
  {
    const auto left = StringProperty::Make("value", "guid", "name", "group", "Group");
    MarkCleanUnload(files_);
  }
  EXPECT_EQ(Marker(), std::nullopt);
}

TEST_F(UnloadCheckTest, WritesAgainOnceTheLeftoverHasGone) {
  {
    const EventFlags left(EventFlags::AutoClear::kNo);
    MarkCleanUnload(files_);
  }
  MarkCleanUnload(files_);
  EXPECT_EQ(Marker(), kFourBytes);
}

TEST_F(UnloadCheckTest, SaysNothingOfAMarkerThatCannotBeWritten) {
  files_.FailOpen(1);
  MarkCleanUnload(files_);
  EXPECT_EQ(Marker(), std::nullopt);
  files_.EndFaults();
  files_.FillDiskAfter(2);
  MarkCleanUnload(files_);
  EXPECT_EQ(Marker(), kFourBytes.substr(0, 2));
}

}  // namespace
}  // namespace valmere::test
