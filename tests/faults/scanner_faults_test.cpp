// A scanner that there is no memory for. The program has its malloc wrapped; memory for anything
// else is asked for in other ways.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstddef>
#include <cstdio>
#include <cstdlib>

#include "json/json_parser.h"

namespace {

constexpr int kUnlimited = -1;
thread_local int t_granted = kUnlimited;

}  // namespace

extern "C" {

void* __real_malloc(std::size_t size);
void* __wrap_malloc(std::size_t size) {
  if (t_granted == 0) return nullptr;
  if (t_granted > 0) --t_granted;
  return __real_malloc(size);
}

}  // extern "C"

namespace valmere::test {
namespace {

using ::testing::AllOf;
using ::testing::ExitedWithCode;
using ::testing::HasSubstr;
using ::testing::Not;

constexpr const char* kHookRan = "an exit hook ran";

// The first block is the scanner's own, of which the parser tells otherwise.
void ScanWithoutBuffers() {
  std::atexit([] { std::fputs(kHookRan, stderr); });
  t_granted = 1;
  ParseJson("{}");
}

TEST(ScannerDeathTest, EndsTheProcessAtOnceAndSaysWhy) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(
      ScanWithoutBuffers(), ExitedWithCode(2),
      AllOf(HasSubstr("out of dynamic memory in yy_scan_buffer()"), Not(HasSubstr(kHookRan))));
}

}  // namespace
}  // namespace valmere::test
