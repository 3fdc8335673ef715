// Clients that connect, speak, stay silent or go, and what is handed on of them.
#include "host/socket/client_listener.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "tests/host/client_end.h"
#include "tests/host/internet_client.h"
#include "tests/support/frames.h"
#include "tests/support/test_thread.h"

namespace valmere::test {
using namespace host;
namespace {

using ::testing::HasSubstr;
using ::testing::internal::CaptureStderr;
using ::testing::internal::GetCapturedStderr;

// A service that takes what a listener hands on, and serves nothing.
class Accepting {
 public:
  explicit Accepting(const Limits& limits = {})
      : all_(limits),
        listener_(
            {local_.get(), internet_.get()}, [this] { StopListening(); }, all_.clients(),
            all_.watch()),
        thread_([this] { Run(); }) {}
  ~Accepting() { Close(); }
  Accepting(const Accepting&) = delete;
  Accepting& operator=(const Accepting&) = delete;

  ClientEnd Connect() const {
    return ClientEnd(platform::Descriptor(ConnectedTo(path_, kPatience)));
  }
  ClientEnd ConnectOverTcp() const { return ClientEnd(ConnectTo(internet_.get())); }
  const std::string& path() const { return path_; }
  // The next one that is handed on; null when there is none.
  std::shared_ptr<Connection> Take() {
    std::shared_ptr<Connection> taken;
    Eventually([&] {
      const std::lock_guard hold(lock_);
      if (accepted_.empty()) return false;
      taken = std::move(accepted_.front());
      accepted_.erase(accepted_.begin());
      return true;
    });
    return taken;
  }
  std::size_t waiting() {
    const std::lock_guard hold(lock_);
    return accepted_.size();
  }
  void Finish() { listener_.Finish(); }
  bool stopped() const { return stopped_; }
  void Close() {
    listener_.Close();
    if (thread_.joinable()) thread_.join();
  }

 private:
  void Run() {
    while (auto connection = listener_.Accept()) {
      const std::lock_guard hold(lock_);
      accepted_.push_back(std::move(connection));
    }
  }
  void StopListening() {
    local_ = {};
    internet_ = {};
    stopped_ = true;
  }

  const TemporaryFolder folder_;
  const std::string path_ = folder_.Path("socket");
  platform::Descriptor local_{ListenOn(path_, 100, SOCK_NONBLOCK)};
  platform::Descriptor internet_ = ListenOnInternet(LoopbackAddresses().back());
  ServedClients all_;
  ClientListener listener_;
  std::atomic<bool> stopped_{false};
  std::mutex lock_;
  std::vector<std::shared_ptr<Connection>> accepted_;
  std::thread thread_;
};

// While standard error is captured, which is into a file.
bool HasReported() {
  struct stat captured {};
  return fstat(STDERR_FILENO, &captured) == 0 && captured.st_size > 0;
}

std::string ReadFrom(Connection& connection, std::size_t most) {
  std::string bytes(most, '\0');
  const int count = connection.Read(bytes.data(), static_cast<int>(most));
  bytes.resize(count > 0 ? static_cast<std::size_t>(count) : 0);
  return bytes;
}

TEST(ClientListener, HandsAClientOnWithItsFirstByte) {
  Accepting service;
  const ClientEnd silent = service.Connect();
  const ClientEnd speaking = service.Connect();
  ASSERT_TRUE(speaking.Send("b"));
  const auto second = service.Take();
  ASSERT_TRUE(second);
  EXPECT_EQ(ReadFrom(*second, 1), "b");
  EXPECT_EQ(service.waiting(), 0U) << "the silent one came first and has said nothing";
  ASSERT_TRUE(silent.Send("a"));
  const auto first = service.Take();
  ASSERT_TRUE(first);
  EXPECT_EQ(ReadFrom(*first, 1), "a");
}

TEST(ClientListener, HandsOnWhatAClientSaidThatHasGone) {
  Accepting service;
  ClientEnd client = service.Connect();
  ASSERT_TRUE(client.Send("last words"));
  client.Close();
  const auto connection = service.Take();
  ASSERT_TRUE(connection);
  EXPECT_EQ(ReadFrom(*connection, 100), "last words");
  EXPECT_EQ(ReadFrom(*connection, 100), "");
}

TEST(ClientListener, HandsOnClientsThatConnectOverTcp) {
  Accepting service;
  const ClientEnd client = service.ConnectOverTcp();
  const std::string frame = FrameOf("{}");
  ASSERT_TRUE(client.Send(frame.substr(0, 7)));
  const auto connection = service.Take();
  ASSERT_TRUE(connection);
  EXPECT_EQ(ReadFrom(*connection, 7), frame.substr(0, 7));
  ASSERT_TRUE(client.Send(frame.substr(7)));
  EXPECT_EQ(ReadFrom(*connection, 13), frame.substr(7, 13));
  EXPECT_EQ(ReadFrom(*connection, 2), "{}");
}

TEST(ClientListener, ClosesAClientOverALimitAtOnce) {
  Limits limits;
  limits.clients = 1;
  Accepting service(limits);
  const ClientEnd first = service.Connect();
  ASSERT_TRUE(first.Send("a"));
  const auto connection = service.Take();
  ASSERT_TRUE(connection);
  CaptureStderr();
  EXPECT_TRUE(service.Connect().ReachesEnd());
  EXPECT_THAT(GetCapturedStderr(), HasSubstr("turned away 1 client, the last one pid"));
}

TEST(ClientListener, FreesThePlaceOfASilentClientThatHangsUp) {
  Limits limits;
  limits.clients = 1;
  Accepting service(limits);
  for (int i = 0; i < 3; ++i) {
    ClientEnd silent = service.Connect();
    silent.Close();
  }
  std::shared_ptr<Connection> connection;
  EXPECT_TRUE(Eventually([&] {
    const ClientEnd client = service.Connect();
    return client.Send("a") && poll(nullptr, 0, 1) == 0 && service.waiting() > 0;
  }));
}

TEST(ClientListener, CountsTheClientsOfEachProcess) {
  Limits limits;
  limits.clients_per_process = 1;
  Accepting service(limits);
  const ClientEnd own = service.Connect();
  ASSERT_TRUE(own.Send("a"));
  const auto first = service.Take();
  ASSERT_TRUE(first);
  EXPECT_TRUE(service.Connect().ReachesEnd());
  const pid_t child = fork();
  if (child == 0) {
    const int socket = ConnectedTo(service.path());
    const bool sent = send(socket, "b", 1, MSG_NOSIGNAL) == 1;
    pause();
    _exit(sent ? 0 : 1);
  }
  const auto second = service.Take();
  EXPECT_TRUE(second && ReadFrom(*second, 1) == "b");
  kill(child, SIGKILL);
  waitpid(child, nullptr, 0);
}

TEST(ClientListener, HandsOnAtTheEndTheOnesThatHaveSpoken) {
  Accepting service;
  ClientEnd silent = service.Connect();
  const ClientEnd speaking = service.Connect();
  ASSERT_TRUE(speaking.Send("a"));
  const auto connection = service.Take();
  service.Finish();
  EXPECT_TRUE(silent.ReachesEnd());
  EXPECT_TRUE(Eventually([&] { return service.stopped(); }));
  EXPECT_THROW(service.Connect(), std::runtime_error);
  EXPECT_EQ(service.waiting(), 0U);
  ASSERT_TRUE(connection);
  EXPECT_EQ(ReadFrom(*connection, 1), "a");
}

TEST(ClientListener, EndsItsAcceptWhenItIsClosed) {
  Accepting service;
  const ClientEnd silent = service.Connect();
  service.Close();
  EXPECT_FALSE(service.stopped()) << "only Finish stops to listen";
}

TEST(ClientListener, ServesClientsAgainOnceThereAreDescriptors) {
  Accepting service;
  rlimit before{};
  ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &before), 0);
  CaptureStderr();
  const platform::Descriptor waiting(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  rlimit none = before;
  none.rlim_cur = 3;
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &none), 0);
  const sockaddr_un address = UnixAddress(service.path());
  const int connected =
      connect(waiting.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address);
  const bool sent = SendAll(waiting.get(), "a");
  EXPECT_EQ(service.waiting(), 0U);
  EXPECT_TRUE(Eventually(HasReported));
  setrlimit(RLIMIT_NOFILE, &before);
  EXPECT_EQ(connected, 0);
  EXPECT_TRUE(sent);
  const auto connection = service.Take();
  EXPECT_TRUE(connection && ReadFrom(*connection, 1) == "a");
  EXPECT_THAT(GetCapturedStderr(), HasSubstr("out of descriptors or memory; clients have to wait"));
}

}  // namespace
}  // namespace valmere::test
