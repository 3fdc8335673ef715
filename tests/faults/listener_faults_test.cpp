// Peers that come over TCP. What is refused while one is accepted or served costs that one.
#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <string>

#include "net/acceptor.h"
#include "net/tcp_listener.h"
#include "platform/sockets.h"
#include "protocol/stream/data_handler_manager.h"
#include "protocol/stream/json_message_handler.h"
#include "tests/faults/fault_fixture.h"
#include "tests/support/stream_fakes.h"
#include "tests/support/test_engine.h"

namespace valmere::test {
namespace {

// A service with its network alone.
class ListeningService {
 public:
  ListeningService() {
    const InSystem in_system;
    tasks_ = std::make_shared<TaskQueue>(kTestPriority);
    handlers_ = std::make_shared<DataHandlerManager>(ServiceContext{MakeTestEngine()}, nullptr,
                                                     tasks_, kTestPriority);
    handlers_->RegisterFactory(std::make_shared<JsonMessageFactory>());
    listener_ = std::make_shared<TcpListener>(std::uint16_t{0}, 10);
    acceptor_.emplace(listener_, handlers_, kTestPriority);
  }
  ~ListeningService() {
    const InSystem in_system;
    acceptor_.reset();
    handlers_.reset();
    tasks_.reset();
    listener_.reset();
  }

  // Whether a new peer is answered; false when its connection is closed instead.
  bool Answers() const {
    const auto socket = platform::ConnectLoopback(listener_->bound_port());
    const std::string request = FrameOf(GetText({"C", "G:P"}));
    const std::string reply = FrameOf(NotFoundText({"C", "G:P"}));
    socket->Send(request.data(), static_cast<int>(request.size()));
    std::string received(reply.size(), '\0');
    for (std::size_t at = 0; at < reply.size();) {
      const int room = static_cast<int>(reply.size() - at);
      const platform::Transfer transfer = socket->Receive(received.data() + at, room);
      if (transfer.count <= 0) return false;
      at += static_cast<std::size_t>(transfer.count);
    }
    return received == reply;
  }
  // Whether each stream is released once its peer has gone.
  bool KeepsNoStream() const {
    return Eventually([&] { return handlers_->LiveStreams() == 0; });
  }

 private:
  std::shared_ptr<TaskQueue> tasks_;
  std::shared_ptr<DataHandlerManager> handlers_;
  std::shared_ptr<TcpListener> listener_;
  std::optional<Acceptor> acceptor_;
};

class ListenerFaults : public ::testing::TestWithParam<Fault> {};

TEST_P(ListenerFaults, CostThatPeer) {
  EXPECT_TRUE(ListeningService().Answers());
  const Remains before = Remains::Now();
  {
    const ListeningService service;
    for (std::uint64_t n = 1;; ++n) {
      SCOPED_TRACE(n);
      OrderedFault ordered(GetParam(), n, Extent::kOnce);
      service.Answers();
      const bool reached = ordered.End();
      ASSERT_TRUE(service.Answers());
      ASSERT_TRUE(service.KeepsNoStream());
      if (!reached) break;
    }
  }
  EXPECT_EQ(Remains::Now(), before);
}

std::string NameOfListenerFault(const ::testing::TestParamInfo<Fault>& info) {
  return TestNameOf(info.param);
}

INSTANTIATE_TEST_SUITE_P(Every, ListenerFaults,
                         ::testing::Values(Fault::kMemory, Fault::kThread, Fault::kKernelObject,
                                           Fault::kSocket),
                         NameOfListenerFault);

}  // namespace
}  // namespace valmere::test
