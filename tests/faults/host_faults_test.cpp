// The server of valmered in this program. What is refused to it costs at most the client that it
// concerns.
#include <dirent.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <optional>
#include <string>
#include <tuple>

#include "host/driver/driver_library.h"
#include "host/server.h"
#include "tests/faults/fault_parameters.h"
#include "tests/platform/device_root.h"
#include "tests/support/frames.h"
#include "tests/support/test_thread.h"
#include "tests/support/unix_socket.h"

namespace valmere::test {
namespace {

int CountDescriptors() {
  DIR* const folder = opendir("/proc/self/fd");
  int count = 0;
  while (readdir(folder) != nullptr)
    ++count;
  closedir(folder);
  return count;
}

class Peer {
 public:
  explicit Peer(const std::string& path) : socket_(ConnectedTo(path)) {}
  ~Peer() { close(socket_); }
  Peer(const Peer&) = delete;
  Peer& operator=(const Peer&) = delete;

  // Sends the bytes and tells whether as many come back before the end of the stream.
  bool Exchange(const std::string& bytes) const {
    if (!Send(bytes)) return false;
    std::string back(bytes.size(), '\0');
    return Receive(back) && back == bytes;
  }
  bool Send(const std::string& bytes) const {
    return send(socket_, bytes.data(), bytes.size(), MSG_NOSIGNAL) ==
           static_cast<ssize_t>(bytes.size());
  }
  // All that is sent has been sent; reads to the end of the stream.
  void Finish() const {
    shutdown(socket_, SHUT_WR);
    std::array<char, 256> rest;
    while (recv(socket_, rest.data(), rest.size(), 0) > 0) {
    }
  }

 private:
  bool Receive(std::string& bytes) const {
    return recv(socket_, bytes.data(), bytes.size(), MSG_WAITALL) ==
           static_cast<ssize_t>(bytes.size());
  }

  const int socket_;
};

class HostFaults : public ::testing::TestWithParam<std::tuple<Fault, Extent>> {
 protected:
  // What a first life leaves for good, such as the loop's own descriptors, is no leak.
  HostFaults() {
    Start();
    Stop();
    blocks_ = SystemBlocks();
    descriptors_ = CountDescriptors();
    Start();
  }

  bool Answers() const { return Peer(path_).Exchange(FrameOf("still there?")); }

  void Start() {
    unlink(path_.c_str());
    listener_.emplace(ListenOn(path_, 16, SOCK_NONBLOCK));
    thread_.emplace([this] {
      const InSystem in_system;
      host::Server server(*listener_, driver_, limits_);
      server.Start();
      server.Run();
    });
    EXPECT_TRUE(Answers());
    Peer(path_).Finish();
  }
  void Stop() {
    std::raise(SIGTERM);
    thread_.reset();
    listener_.reset();
  }
  void StopCleanly() {
    Stop();
    EXPECT_EQ(SystemBlocks(), blocks_);
    EXPECT_EQ(CountDescriptors(), descriptors_);
  }

  template <class Act>
  static void ForEachFault(Act act) {
    const auto [fault, extent] = GetParam();
    // Every one at first, where what a connection is made of lies; later ones in growing steps.
    for (std::uint64_t n = 1;; n += 1 + n / 16) {
      SCOPED_TRACE(n);
      OrderedFault ordered(fault, n, extent);
      act();
      if (!ordered.End() || HasFailure()) return;
    }
  }

  const DeviceRoot folder_;
  const std::string path_ = folder_.At("socket");
  const host::DriverLibrary driver_{ECHO_DRIVER};
  const host::Limits limits_;
  std::optional<host::ListeningSocket> listener_;
  std::int64_t blocks_ = 0;
  int descriptors_ = 0;
  std::optional<TestThread> thread_;
};

TEST_P(HostFaults, CostAtMostTheClientConcerned) {
  std::optional<Peer> bystander(path_);
  EXPECT_TRUE(bystander->Exchange(FrameOf("first")));
  const std::string frame = FrameOf("a frame in two pieces");
  ForEachFault([&] {
    Peer peer(path_);
    if (peer.Exchange(FrameOf("hello")) && peer.Send(frame.substr(0, 30)))
      peer.Send(frame.substr(30));
    peer.Finish();
  });
  EXPECT_TRUE(Answers());
  EXPECT_TRUE(bystander->Exchange(FrameOf("last")));
  bystander.reset();
  StopCleanly();
}

TEST_P(HostFaults, CostAtMostTheClientWhoLeavesItsRepliesUnread) {
  std::optional<Peer> bystander(path_);
  EXPECT_TRUE(bystander->Exchange(FrameOf("first")));
  const std::string frame = FrameOf(std::string(8000, 'x'));
  ForEachFault([&] {
    Peer peer(path_);
    for (int i = 0; i < 100 && peer.Send(frame); ++i) {
    }
    peer.Finish();
  });
  EXPECT_TRUE(Answers());
  EXPECT_TRUE(bystander->Exchange(FrameOf("last")));
  bystander.reset();
  StopCleanly();
}

TEST_P(HostFaults, CostAtMostALoadOfThePropertyFile) {
  ForEachFault([&] {
    std::raise(SIGHUP);
    const Peer peer(path_);
    peer.Exchange(FrameOf("after the signal"));
    peer.Finish();
  });
  EXPECT_TRUE(Answers());
  StopCleanly();
}

INSTANTIATE_TEST_SUITE_P(Every, HostFaults,
                         EveryFaultOf(Fault::kMemory, Fault::kThread, Fault::kLoop), FaultName);
// While no client can be accepted, clients wait.
INSTANTIATE_TEST_SUITE_P(Single, HostFaults,
                         ::testing::Values(std::tuple(Fault::kSocket, Extent::kOnce)), FaultName);

}  // namespace
}  // namespace valmere::test
