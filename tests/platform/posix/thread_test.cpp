// What a forced end takes from the program that loaded the library, and gives back.
#include <gtest/gtest.h>
#include <signal.h>

#include <atomic>
#include <csignal>
#include <vector>

#include "platform/kernel.h"
#include "tests/support/test_thread.h"

namespace valmere::test {
using namespace platform;
namespace {

using test::Eventually;

std::atomic<int> g_caught{0};

// An emulator has no more.
const int kLastRealTimeSignal = SIGRTMAX - 2;

// But for those of memory and arithmetic, which the sanitizers want for themselves.
std::vector<int> CatchableSignals() {
  std::vector<int> numbers = {SIGUSR1, SIGUSR2, SIGALRM, SIGSYS};
  for (int number = SIGRTMIN; number <= kLastRealTimeSignal; ++number)
    numbers.push_back(number);
  return numbers;
}

TEST(ForcedEnd, PutsTheProgramsOwnSignalHandlersBack) {
  for (const int number : CatchableSignals())
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
  for (const int number : CatchableSignals()) {
    std::raise(number);
    EXPECT_EQ(g_caught, ++sent) << number;
    std::signal(number, SIG_DFL);
  }
}

// A program may keep its signals blocked everywhere and wait for them. One that a worker takes
// instead is lost, or ends the process.
TEST(Thread, LeavesTheProgramsSignalsToTheProgram) {
  sigset_t blocked;
  sigemptyset(&blocked);
  Thread thread;
  ASSERT_TRUE(thread.Start(
      [](void* set) { pthread_sigmask(SIG_BLOCK, nullptr, static_cast<sigset_t*>(set)); }, &blocked,
      249));
  while (!thread.WaitEnded(1000)) {
  }
  for (int number = SIGRTMIN; number <= kLastRealTimeSignal; ++number)
    EXPECT_EQ(sigismember(&blocked, number), 1) << number;
  for (const int number : {SIGHUP, SIGINT, SIGTERM, SIGUSR1, SIGUSR2, SIGALRM, SIGCHLD, SIGPIPE})
    EXPECT_EQ(sigismember(&blocked, number), 1) << number;
}

}  // namespace
}  // namespace valmere::test
