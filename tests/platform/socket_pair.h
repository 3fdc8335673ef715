// Sockets on the loopback address, always on ports that the system chose.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <memory>

#include "platform/kernel.h"
#include "platform/sockets.h"

namespace valmere::test {
using namespace platform;

inline std::unique_ptr<ListenSocket> Listening(std::uint16_t port = 0) {
  auto listener = MakeListenSocket();
  EXPECT_EQ(0, listener->Listen(port, 10));
  return listener;
}

struct Pair {
  std::unique_ptr<StreamSocket> client;
  std::unique_ptr<StreamSocket> server;
};

inline Pair Connected(ListenSocket& listener) {
  Pair pair;
  pair.client = ConnectLoopback(listener.BoundPort());
  EXPECT_NE(nullptr, pair.client);
  pair.server = listener.Accept().socket;
  EXPECT_NE(nullptr, pair.server);
  return pair;
}

inline Pair Connected() {
  return Connected(*Listening());
}

// Lets time pass. Where a call should be blocked first, the outcome is the same if it is not yet.
inline void Pause(std::uint32_t milliseconds) {
  Semaphore never;
  never.WaitUntil(MonotonicNow() + milliseconds * kTicksPerMillisecond);
}

}  // namespace valmere::test
