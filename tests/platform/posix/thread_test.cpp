// What a forced end takes from the program that loaded the library, and gives back.
#include <gtest/gtest.h>

#include <atomic>
#include <csignal>

#include "platform/kernel.h"
#include "tests/support/test_thread.h"

namespace valmere::platform {
namespace {

using testing::Eventually;

std::atomic<int> g_caught{0};

TEST(ForcedEnd, PutsTheProgramsOwnSignalHandlersBack) {
  for (int number = SIGRTMIN; number <= SIGRTMAX; ++number)
    ASSERT_NE(std::signal(number, [](int) { ++g_caught; }), SIG_ERR) << number;
  struct Waiting {
    Semaphore never;
    std::atomic<bool> running{false};
  } waiting;
  Thread thread;
  ASSERT_TRUE(thread.Start(
      [](void* argument) {
        static_cast<Waiting*>(argument)->running = true;
        static_cast<Waiting*>(argument)->never.Wait();
      },
      &waiting, 249));
  ASSERT_TRUE(Eventually([&] { return waiting.running.load(); }));
  EXPECT_TRUE(Eventually([&] { return thread.ForceEnd() == Thread::ForcedEnd::kGone; }));
  EXPECT_EQ(g_caught, 0);
  int sent = 0;
  for (int number = SIGRTMIN; number <= SIGRTMAX; ++number) {
    std::raise(number);
    EXPECT_EQ(g_caught, ++sent) << number;
    std::signal(number, SIG_DFL);
  }
}

}  // namespace
}  // namespace valmere::platform
