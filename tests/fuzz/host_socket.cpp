// A client of valmered's socket: server, connection and driver in one process. The input's first
// byte tells how the client ends, the second the number of pieces but the last; the next bytes are
// their lengths, a pause behind them where the highest bit is set; the rest is what the client
// sends.
#include <poll.h>
#include <pthread.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <ctime>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include "driver/prn.h"
#include "host/driver/driver_library.h"
#include "host/server.h"
#include "host/socket/listening_socket.h"
#include "platform/kernel.h"
#include "tests/fuzz/frames_received.h"
#include "tests/fuzz/fuzz_target.h"
#include "tests/fuzz/memory_service.h"
#include "tests/support/unix_socket.h"

namespace valmere::test {
namespace {

constexpr unsigned kMostPieces = 8;
constexpr long kPauseNanoseconds = 50'000;
// Little, so that a client that does not read can go beyond it.
constexpr std::size_t kUnreadBytes = 8192;

// The service behind the entry points below. A call holds the lock only to look its session up, so
// that a read that waits does not keep the service.
std::mutex g_service_lock;
MemoryService* g_service = nullptr;
platform::Semaphore g_closed;  // released for each handle that the host has closed

std::shared_ptr<DriverSession> FindSession(std::uint32_t handle) {
  const std::lock_guard hold(g_service_lock);
  return (*g_service)->sessions().Find(handle);
}

sockaddr* Generic(sockaddr_un& address) {
  return reinterpret_cast<sockaddr*>(&address);
}

int NewSocket(int flags) {
  const int made = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | flags, 0);
  Require(made >= 0, "there is a socket to be had");
  return made;
}

// On an address that the kernel chooses.
int MakeListener() {
  const int listener = NewSocket(SOCK_NONBLOCK);
  sockaddr_un any{};
  any.sun_family = AF_UNIX;
  Require(bind(listener, Generic(any), sizeof any.sun_family) == 0, "the kernel finds an address");
  Require(listen(listener, 16) == 0, "a bound socket listens");
  return listener;
}

// For the threads that ask for no size: an address sanitizer clears what it keeps of the whole
// stack whenever a thread starts.
void MakeStacksSmall() {
  constexpr std::size_t kStackBytes = std::size_t{1} << 20;
  pthread_attr_t attributes;
  pthread_attr_init(&attributes);
  pthread_attr_setstacksize(&attributes, kStackBytes);
  pthread_setattr_default_np(&attributes);
  pthread_attr_destroy(&attributes);
}

// Purpose: a server in a thread of its own. It ends on a signal, but the process's signals are not
//   its own here: they have their old meaning between its start and its end.
// Owner: the target.
// Threads: one at a time.
// Errors: those of Server.
class RunningServer {
 public:
  RunningServer() : listener_(MakeListener()) {
    MakeStacksSmall();
    g_service = &service_;
    limits_.unread_bytes = kUnreadBytes;
    struct sigaction old[kSignals.size()];
    for (std::size_t i = 0; i < kSignals.size(); ++i)
      sigaction(kSignals[i], nullptr, &old[i]);
    server_ = std::make_unique<host::Server>(listener_, driver_, limits_);
    driver_.Init();
    for (std::size_t i = 0; i < kSignals.size(); ++i)
      sigaction(kSignals[i], &old[i], kSignals[i] == SIGTERM ? &end_ : nullptr);
    Require(server_->Start(), "no signal has come");
    thread_ = std::thread([this] { server_->Run(); });
  }
  ~RunningServer() {
    sigaction(SIGTERM, &end_, nullptr);
    kill(getpid(), SIGTERM);
    thread_.join();
    server_.reset();
    driver_.Deinit();
  }
  RunningServer(const RunningServer&) = delete;
  RunningServer& operator=(const RunningServer&) = delete;

  void BeginRun() {
    const std::lock_guard hold(g_service_lock);
    service_.BeginRun();
  }
  int Connect() const {
    const int client = NewSocket(0);
    sockaddr_un address{};
    socklen_t size = sizeof address;
    getsockname(listener_.descriptor(), Generic(address), &size);
    Require(connect(client, Generic(address), size) == 0, "the server is there");
    return client;
  }

 private:
  static constexpr std::array kSignals = {SIGTERM, SIGINT, SIGHUP};

  MemoryService service_;
  host::ListeningSocket listener_;
  // The program itself: its entry points are below.
  host::DriverLibrary driver_{""};
  host::Limits limits_;
  struct sigaction end_ {};
  std::unique_ptr<host::Server> server_;
  std::thread thread_;
};

// Receives what comes until the end, or until there is nothing at once.
void Receive(int client, int flags, std::string& received) {
  char buffer[16384];
  for (ssize_t count; (count = recv(client, buffer, sizeof buffer, flags)) > 0;)
    received.append(buffer, static_cast<std::size_t>(count));
}

void Pause(int client, std::string& received) {
  pollfd readable{client, POLLIN, 0};
  const timespec patience{0, kPauseNanoseconds};
  if (ppoll(&readable, 1, &patience, nullptr) > 0) Receive(client, MSG_DONTWAIT, received);
}

void SendInPieces(int client, Choices& choices, std::string& received) {
  const std::string_view lengths = choices.Bytes(choices.Byte() % kMostPieces);
  for (const char byte : lengths) {
    const auto length = static_cast<unsigned char>(byte);
    if (!SendAll(client, choices.Bytes(length & 0x7F))) return;
    if ((length & 0x80) != 0) Pause(client, received);
  }
  SendAll(client, choices.Rest());
}

void Talk(int client, Choices choices) {
  enum End : unsigned { kHalfClose, kCloseAtOnce, kShutDown, kEnds };
  const unsigned end = choices.Byte() % kEnds;
  std::string received;
  SendInPieces(client, choices, received);
  if (end == kCloseAtOnce) return;
  shutdown(client, end == kHalfClose ? SHUT_WR : SHUT_RDWR);
  Receive(client, 0, received);
  const std::string_view cut = RequireFrames(received);
  Require(end != kHalfClose || cut.empty() || received.size() > kUnreadBytes,
          "frames are received whole, unless too many were left unread");
}

}  // namespace

#define FUZZ_ENTRY extern "C" __attribute__((visibility("default")))

FUZZ_ENTRY uint32_t PRN_Init(uint32_t) {
  return 1;
}

FUZZ_ENTRY uint32_t PRN_Deinit(uint32_t) {
  return 1;
}

FUZZ_ENTRY uint32_t PRN_Open(uint32_t, uint32_t, uint32_t) {
  const std::lock_guard hold(g_service_lock);
  return (*g_service)->OpenSession();
}

FUZZ_ENTRY uint32_t PRN_Close(uint32_t handle) {
  {
    const std::lock_guard hold(g_service_lock);
    Require((*g_service)->CloseSession(handle), "a handle is closed once");
  }
  g_closed.Release();
  return 1;
}

FUZZ_ENTRY uint32_t PRN_Read(uint32_t handle, void* buffer, uint32_t count) {
  if (const auto session = FindSession(handle)) session->Read(buffer, static_cast<int>(count));
  return count;
}

FUZZ_ENTRY int32_t PRN_Write(uint32_t handle, const void* buffer, uint32_t count) {
  const auto session = FindSession(handle);
  return session ? session->Write(buffer, static_cast<int>(count)) : -1;
}

FUZZ_ENTRY uint32_t PRN_IOControl(uint32_t, uint32_t, void*, uint32_t, void*, uint32_t, uint32_t*) {
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static RunningServer server;
  server.BeginRun();
  const int client = server.Connect();
  Talk(client, Choices(data, size));
  close(client);
  g_closed.Wait();
  return 0;
}

}  // namespace valmere::test
