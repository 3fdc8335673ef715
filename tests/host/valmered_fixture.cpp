// The calls come through a named pipe, so that a test can wait for one of them.
#include "tests/host/valmered_fixture.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>

#include "protocol/wire/message_frame.h"

namespace valmere::test {

std::size_t ThreadsOf(pid_t process) {
  const auto tasks =
      std::filesystem::directory_iterator("/proc/" + std::to_string(process) + "/task");
  return static_cast<std::size_t>(std::distance(begin(tasks), end(tasks)));
}

RawClient::RawClient(const std::string& path) : socket_(ConnectedTo(path, kPatience)) {}

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

void RawClient::Exchange(const std::string& text) const {
  Send(FrameOf(text));
  EXPECT_EQ(ReceiveFrame(), text);
}

bool RawClient::PeerHasClosed() const {
  pollfd wanted{socket_, POLLRDHUP, 0};
  return poll(&wanted, 1, 0) > 0;
}

CallLog::CallLog(const std::string& path) {
  mkfifo(path.c_str(), 0600);
  pipe_ = open(path.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC);
}

CallLog::~CallLog() {
  close(pipe_);
}

std::string CallLog::Next() {
  std::size_t end = 0;
  while ((end = text_.find('\n')) == std::string::npos) {
    pollfd wanted{pipe_, POLLIN, 0};
    if (poll(&wanted, 1, static_cast<int>(kPatience.count()) * 1000) <= 0) {
      ADD_FAILURE() << "the driver is not called";
      return "";
    }
    Drain();
  }
  const std::string line = text_.substr(0, end);
  text_.erase(0, end + 1);
  return line;
}

void CallLog::Drain() {
  char buffer[4096];
  const ssize_t count = read(pipe_, buffer, sizeof(buffer));
  if (count > 0) text_.append(buffer, static_cast<std::size_t>(count));
}

std::vector<std::string> CallLog::Until(const std::string& last) {
  std::vector<std::string> lines;
  do {
    lines.push_back(Next());
  } while (lines.back() != last && !lines.back().empty());
  return lines;
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

ValmeredTest::ValmeredTest() : log_(folder_.Path("calls")) {
  std::filesystem::create_directories(root_ + "/Store");
}

std::vector<std::string> ValmeredTest::Command(const std::vector<std::string>& options) const {
  std::vector<std::string> command{VALMERED,    "--root",          root_,
                                   "--socket",  socket_,           "--library",
                                   FAKE_DRIVER, "--drain-timeout", drain_timeout_};
  command.insert(command.end(), options.begin(), options.end());
  return command;
}

void ValmeredTest::Start(const std::vector<std::string>& options) {
  valmered_ = std::make_unique<Subprocess>(Command(options), environment_);
  ASSERT_EQ(valmered_->ReadLine(), "valmered: ready on " + socket_);
  ASSERT_EQ(log_.Next(), "init " + root_ + " log " + log_bytes_);
}

void ValmeredTest::Stop(int signal) {
  valmered_->Signal(signal);
  EXPECT_EQ(log_.Until("deinit 1 open 0").back(), "deinit 1 open 0");
  EXPECT_EQ(valmered_->Wait(), 0);
  EXPECT_EQ(valmered_->errors(), "");
}

}  // namespace valmere::test
