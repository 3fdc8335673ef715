// What the tests of the line queue share.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "persist/file/line_queue.h"
#include "tests/persist/file/line_reports.h"
#include "tests/persist/file/property_file_samples.h"
#include "tests/support/memory_file_system.h"

namespace valmere::test {

inline constexpr platform::WidePathView kQueuedFile = u"/Store/Properties.ini";
inline constexpr platform::WidePathView kOther = u"/Store/Other.ini";
inline constexpr platform::WidePathView kThird = u"/Store/Third.ini";

using Texts = std::vector<std::string>;

class LineQueueTest : public ::testing::Test {
 protected:
  void Push(std::string_view left_side, std::string_view value,
            platform::WidePathView path = kQueuedFile) {
    queue_.Push(MakeWriteRequest(left_side, value, path));
  }
  std::vector<std::string> reported() { return reports_->all(); }

  const std::shared_ptr<MemoryFileSystem> files_ = std::make_shared<MemoryFileSystem>();
  const std::shared_ptr<KeptReports> reports_ = std::make_shared<KeptReports>();
  LineQueue queue_{files_, reports_, kQueuedFile};
};

}  // namespace valmere::test
