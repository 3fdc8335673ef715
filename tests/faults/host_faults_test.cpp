// The server of valmered and its service in this program. What is refused to them costs at most the
// client that it concerns.
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <csignal>
#include <memory>
#include <optional>
#include <string>
#include <tuple>
#include <vector>

#include "host/driver/driver.h"
#include "host/server.h"
#include "protocol/wire/message_frame.h"
#include "tests/faults/fault_fixture.h"
#include "tests/support/frames.h"
#include "tests/support/unix_socket.h"

namespace valmere::test {
namespace {

const Address kPublished = {"Component", "Group:Property"};

class Peer {
 public:
  explicit Peer(const std::string& path) : socket_(ConnectedTo(path)) {}
  ~Peer() { close(socket_); }
  Peer(const Peer&) = delete;
  Peer& operator=(const Peer&) = delete;

  bool Send(const std::string& bytes) const { return SendAll(socket_, bytes); }
  // Whether the request is answered with the frame of that text before the end of the stream.
  bool Ask(const std::string& request, const std::string& answer) const {
    if (!Send(request)) return false;
    const std::string header = Receive(kFrameHeaderBytes);
    if (header.size() < kFrameHeaderBytes) return false;
    const auto* const bytes = reinterpret_cast<const unsigned char*>(header.data());
    return header + Receive(DecodeLength(bytes + kStreamFormatIdentifier.size())) ==
           FrameOf(answer);
  }
  bool IsAnswered() const { return Ask(FrameOf(GetText(kOwnComponent)), OwnComponentText()); }
  // All that is sent has been sent; reads to the end of the stream.
  void Finish() const {
    shutdown(socket_, SHUT_WR);
    std::array<char, 65536> rest;
    while (recv(socket_, rest.data(), rest.size(), 0) > 0) {
    }
  }

 private:
  // Less at the end of the stream.
  std::string Receive(std::size_t count) const {
    std::string bytes(count, '\0');
    const ssize_t received = recv(socket_, bytes.data(), count, MSG_WAITALL);
    bytes.resize(received > 0 ? static_cast<std::size_t>(received) : 0);
    return bytes;
  }

  const int socket_;
};

class HostFaults : public ::testing::TestWithParam<std::tuple<Fault, Extent>> {
 protected:
  // What a first life leaves for good, such as the loop's own descriptors and what a first line of
  // the log and of the property file takes, is no leak.
  HostFaults() {
    limits_.drain = {};
    device_.MakeFolder("root/Store");
    Start();
    Peer(path_).Send(FrameOf(SetText(kPeriod, "750")));
    EXPECT_TRUE(Eventually([&] { return device_.Has(kFile); }));
    EXPECT_TRUE(Peer(path_).Ask(FrameOf(SetText({kOwnComponent.component, "no:such"}, "1")) +
                                    FrameOf(GetText(kOwnComponent)),
                                OwnComponentText()));
    Stop();
    before_ = Remains::Now();
    Start();
  }

  static constexpr const char* kFile = "root/Store/ValmereProperties.ini";

  bool HasPeriod(const std::string& value) const {
    const std::string name = "Property Publishing Period in ms";
    return Peer(path_).Ask(FrameOf(GetText(kPeriod)), Responses(Entry(kPeriod, "Valmere", "General",
                                                                      name, "Successful", value)));
  }
  // A client that has been answered, and whose next request is waited for: no fault concerns it.
  std::unique_ptr<Peer> ConnectBystander() const {
    auto bystander = std::make_unique<Peer>(path_);
    EXPECT_TRUE(bystander->IsAnswered());
    EXPECT_TRUE(Eventually([] { return WaitingReceives() == 1; }));
    return bystander;
  }
  bool Answers() const {
    const Peer peer(path_);
    const bool answered = peer.IsAnswered();
    peer.Finish();
    return answered;
  }

  void Start() {
    unlink(path_.c_str());
    const int listening = ListenOn(path_, 16, SOCK_NONBLOCK);
    serving_ = false;
    thread_.emplace([this, listening] {
      const InSystem in_system;
      host::Driver driver;
      host::Server server(driver, limits_);
      driver.Init();
      server.Start({listening}, [] {});
      serving_ = true;
      server.Run();
      driver.Deinit();
      close(listening);
    });
    // A client may be answered while the start is not over yet.
    EXPECT_TRUE(Eventually([this] { return serving_.load(); }));
    EXPECT_TRUE(Answers());
  }
  void Stop() {
    std::raise(SIGTERM);
    thread_.reset();
  }
  // Nothing may be left but so many blocks.
  void StopCleanly(std::int64_t most_blocks = 0) {
    Stop();
    // A thread that has been counted out may not have given back all that it held.
    const auto is_clean = [&] {
      const Remains now = Remains::Now();
      return now.blocks <= before_.blocks + most_blocks && now.descriptors == before_.descriptors &&
             now.alive == before_.alive;
    };
    EXPECT_TRUE(Eventually(is_clean)) << Remains::Now() << ", before: " << before_;
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

  DeviceRoot device_;
  const std::string path_ = device_.At("socket");
  host::Limits limits_;
  Remains before_{};
  std::atomic<bool> serving_{false};
  std::optional<TestThread> thread_;
};

TEST_P(HostFaults, CostAtMostTheClientConcerned) {
  auto bystander = ConnectBystander();
  const std::string frame = FrameOf(GetText(kOwnComponent));
  const std::string publication = FrameOf(PublishedText(kPublished, "a value"));
  ForEachFault([&] {
    Peer peer(path_);
    if (peer.Ask(publication + FrameOf(GetText(kPublished)),
                 PublishedText(kPublished, "a value")) &&
        peer.Send(frame.substr(0, 30)))
      peer.Send(frame.substr(30));
    peer.Finish();
  });
  EXPECT_TRUE(Answers());
  EXPECT_TRUE(bystander->IsAnswered());
  bystander.reset();
  StopCleanly();
}

TEST_P(HostFaults, CostAtMostTheClientWhoLeavesItsRepliesUnread) {
  auto bystander = ConnectBystander();
  const std::string get = FrameOf(GetText(kPublished));
  const std::string frames =
      FrameOf(PublishedText(kPublished, std::string(400'000, 'x'))) + get + get + get;
  ForEachFault([&] {
    Peer peer(path_);
    peer.Send(frames);
    peer.Finish();
  });
  EXPECT_TRUE(Answers());
  EXPECT_TRUE(bystander->IsAnswered());
  bystander.reset();
  StopCleanly();
}

TEST_P(HostFaults, CostAtMostALoadOfThePropertyFile) {
  ForEachFault([&] {
    device_.Put(kFile, PropertyFile("750"));
    std::raise(SIGHUP);
    const Peer peer(path_);
    peer.IsAnswered();
    peer.Finish();
  });
  EXPECT_TRUE(Answers());
  // A line that the load before has changed may still be on its way into the file.
  EXPECT_TRUE(Eventually([&] {
    device_.Put(kFile, PropertyFile("1000"));
    std::raise(SIGHUP);
    return HasPeriod("1000");
  }));
  // The process's list of leases on property files grows where a load and a line meet.
  StopCleanly(1);
}

INSTANTIATE_TEST_SUITE_P(Every, HostFaults,
                         EveryFaultOf(Fault::kMemory, Fault::kThread, Fault::kPoll), FaultName);
// While no client can be accepted, clients wait.
INSTANTIATE_TEST_SUITE_P(Single, HostFaults,
                         ::testing::Values(std::tuple(Fault::kSocket, Extent::kOnce)), FaultName);

}  // namespace
}  // namespace valmere::test
