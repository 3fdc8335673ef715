#include "tests/host/valmered_fixture.h"

#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>

#include "protocol/wire/message_frame.h"

namespace valmere::test {

namespace {

std::size_t EntriesOf(pid_t process, const char* folder) {
  const auto entries =
      std::filesystem::directory_iterator("/proc/" + std::to_string(process) + "/" + folder);
  return static_cast<std::size_t>(std::distance(begin(entries), end(entries)));
}

int ConnectedToPort(std::uint16_t port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  const int connected = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  SetPatience(connected, kPatience);
  EXPECT_EQ(connect(connected, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
  return connected;
}

Address NewAddress() {
  static std::atomic<int> count = 0;
  const std::string number = std::to_string(++count);
  return {"Component " + number, "Group " + number + ":Property " + number};
}

}  // namespace

std::size_t ThreadsOf(pid_t process) {
  return EntriesOf(process, "task");
}

std::size_t DescriptorsOf(pid_t process) {
  return EntriesOf(process, "fd");
}

std::size_t MemoryOf(pid_t process) {
  std::ifstream file("/proc/" + std::to_string(process) + "/statm");
  std::size_t all = 0;
  std::size_t resident = 0;
  file >> all >> resident;
  return resident * static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
}

std::string GetManyText(const Address& address, int times) {
  const std::string one = GetText(address);
  const std::size_t begin = one.find('[') + 1;
  const std::string entry = one.substr(begin, one.find(']') - begin);
  std::string text = one.substr(0, begin) + entry;
  for (int i = 1; i < times; ++i)
    text += "," + entry;
  return text + "]}";
}

std::string SubscribeText(const Address& address) {
  std::string text = GetText(address);
  constexpr std::string_view kGets = "PropertyGetRequests";
  return text.replace(text.find(kGets), kGets.size(), "PropertySubscribeRequests");
}

RawClient::RawClient(const std::string& path)
    : socket_(ConnectedTo(path, kPatience)), address_(NewAddress()) {}

RawClient::RawClient(std::uint16_t port) : socket_(ConnectedToPort(port)), address_(NewAddress()) {}

RawClient::~RawClient() {
  close(socket_);
}

void RawClient::Send(const std::string& bytes) const {
  ASSERT_TRUE(SendAll(socket_, bytes)) << "cannot send";
}

bool RawClient::TrySend(const std::string& bytes) const {
  return send(socket_, bytes.data(), bytes.size(), MSG_NOSIGNAL) ==
         static_cast<ssize_t>(bytes.size());
}

std::string RawClient::ReceiveFrameIfAny() const {
  char first = 0;
  return recv(socket_, &first, 1, MSG_PEEK) == 1 ? ReceiveFrame() : "";
}

std::string RawClient::ReceiveExactly(std::size_t count) const {
  std::string bytes(count, '\0');
  const ssize_t received = count == 0 ? 0 : recv(socket_, bytes.data(), count, MSG_WAITALL);
  EXPECT_EQ(received, static_cast<ssize_t>(count)) << "the stream ended early";
  return bytes;
}

std::string RawClient::ReceiveFrame() const {
  const std::string header = ReceiveExactly(kFrameHeaderBytes);
  const auto* length =
      reinterpret_cast<const unsigned char*>(header.data()) + kStreamFormatIdentifier.size();
  return ReceiveExactly(DecodeLength(length));
}

std::string RawClient::ReceiveToEnd() const {
  std::string bytes;
  char buffer[65536];
  ssize_t count = 0;
  while ((count = recv(socket_, buffer, sizeof(buffer), 0)) > 0) {
    bytes.append(buffer, static_cast<std::size_t>(count));
  }
  return count == 0 ? bytes : bytes + "lost";
}

void RawClient::FinishSending() const {
  shutdown(socket_, SHUT_WR);
}

std::string RawClient::Request(const std::string& value) const {
  return FrameOf(Published(value)) + FrameOf(Get());
}

void RawClient::Exchange(const std::string& value) const {
  Send(Request(value));
  EXPECT_EQ(ReceiveFrame(), Published(value));
}

std::string RawClient::Ask(const std::string& text) const {
  Send(FrameOf(text));
  return ReceiveFrame();
}

// A value that is not too long to be published, as often as it takes.
void RawClient::AskWithoutReading(std::size_t bytes) const {
  constexpr std::size_t kMostOfOne = 4'000'000;
  const std::size_t times = (bytes + kMostOfOne - 1) / kMostOfOne;
  Send(FrameOf(Published(std::string(bytes / times, 'x'))));
  EXPECT_EQ(Ask(GetText(kOwnComponent)), OwnComponentText());
  Send(FrameOf(GetManyText(address_, static_cast<int>(times))));
}

bool RawClient::PeerHasClosed() const {
  pollfd wanted{socket_, POLLRDHUP, 0};
  return poll(&wanted, 1, 0) > 0;
}

NoticeSocket::NoticeSocket(const std::string& path)
    : socket_(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
  const sockaddr_un address = UnixAddress(path);
  EXPECT_EQ(bind(socket_, reinterpret_cast<const sockaddr*>(&address), sizeof(address)), 0);
  SetPatience(socket_, kPatience);
}

NoticeSocket::~NoticeSocket() {
  close(socket_);
}

std::string NoticeSocket::Next() const {
  char buffer[1024];
  const ssize_t count = recv(socket_, buffer, sizeof(buffer), 0);
  return count < 0 ? "no notice" : std::string(buffer, static_cast<std::size_t>(count));
}

std::string ContentOf(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

ValmeredTest::ValmeredTest() {
  std::filesystem::create_directories(root_ + "/Store");
}

std::vector<std::string> ValmeredTest::Command(const std::vector<std::string>& options) const {
  std::vector<std::string> command{VALMERED, "--root",          root_,         "--socket",
                                   socket_,  "--drain-timeout", drain_timeout_};
  command.insert(command.end(), options.begin(), options.end());
  return command;
}

void ValmeredTest::Start(const std::vector<std::string>& options) {
  valmered_ = std::make_unique<Subprocess>(Command(options));
  ASSERT_EQ(valmered_->ReadLine(), "valmered: ready on " + socket_);
}

void ValmeredTest::Stop(int signal) {
  valmered_->Signal(signal);
  ExpectCleanEnd();
  EXPECT_EQ(valmered_->errors(), "");
}

void ValmeredTest::ExpectCleanEnd() {
  constexpr std::uintmax_t kMarkBytes = 4;
  EXPECT_EQ(valmered_->Wait(), 0) << valmered_->errors();
  EXPECT_EQ(std::filesystem::file_size(root_ + "/DriverUnloadSuccessful"),
            ++clean_ends_ * kMarkBytes)
      << "something of the service was still alive";
}

std::string ValmeredTest::ClosedLine(const std::string& cause) {
  return "valmered: client [0-9]+ \\(pid " + std::to_string(getpid()) + ", uid " +
         std::to_string(getuid()) + "\\): closed: " + cause;
}

}  // namespace valmere::test
