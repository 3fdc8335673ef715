// Frames are put together by hand here, so that the library is not tested against itself.
#include "tests/client/fake_service.h"

#include <gtest/gtest.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstdint>
#include <cstring>

namespace valmere::test {
namespace {

constexpr unsigned char kIdentifier[16] = {0xb3, 0xec, 0x09, 0x9a, 0x22, 0x92, 0x48, 0xfa,
                                           0x83, 0xd0, 0x06, 0x84, 0x0b, 0xc9, 0x91, 0x02};

std::string ReceiveExactly(int socket, std::size_t count) {
  std::string bytes(count, '\0');
  const ssize_t received = recv(socket, bytes.data(), count, MSG_WAITALL);
  return received == static_cast<ssize_t>(count) ? bytes : "";
}

}  // namespace

std::string FrameOf(const std::string& text) {
  std::string frame(reinterpret_cast<const char*>(kIdentifier), sizeof(kIdentifier));
  for (int shift = 0; shift < 32; shift += 8) {
    frame += static_cast<char>(text.size() >> shift & 0xff);
  }
  return frame + text;
}

std::string ResponseText(const std::vector<client::Property>& properties) {
  std::string text = R"({"PropertyGetResponses": [)";
  for (const client::Property& property : properties) {
    if (text.back() == '}') text += ",";
    text += R"({"Component": ")" + property.component;
    text += R"(","ComponentString": ")" + property.component_name;
    text += R"(","GUID": ")" + property.group_guid + ":" + property.guid;
    text += R"(","GroupString": ")" + property.group_name;
    text += R"(","NameString": ")" + property.name;
    text += R"(","Status": ")" + property.status;
    text += R"(","Value": ")" + property.value + R"("})";
  }
  return text + "]}";
}

std::string FakeConnection::Receive() const {
  const std::string header = ReceiveExactly(socket_, 20);
  if (header.empty()) return "";
  std::size_t length = 0;
  for (std::size_t i = 0; i < 4; ++i) {
    length |= std::size_t{static_cast<unsigned char>(header[16 + i])} << (8 * i);
  }
  return ReceiveExactly(socket_, length);
}

void FakeConnection::SendBytes(const std::string& bytes) const {
  std::size_t sent = 0;
  while (sent < bytes.size()) {
    const ssize_t count = send(socket_, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
    if (count <= 0) return;
    sent += static_cast<std::size_t>(count);
  }
}

void FakeConnection::WaitForEnd() const {
  while (!Receive().empty()) {
  }
}

FakeService::FakeService(Script script)
    : listener_(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)), stop_(eventfd(0, EFD_CLOEXEC)) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::strncpy(address.sun_path, path_.c_str(), sizeof(address.sun_path) - 1);
  EXPECT_EQ(bind(listener_, reinterpret_cast<sockaddr*>(&address), sizeof(address)), 0);
  EXPECT_EQ(listen(listener_, 10), 0);
  thread_ = std::thread([this, script = std::move(script)] { Run(script); });
}

FakeService::~FakeService() {
  const std::uint64_t one = 1;
  EXPECT_EQ(write(stop_, &one, sizeof(one)), static_cast<ssize_t>(sizeof(one)));
  thread_.join();
  close(stop_);
  close(listener_);
}

void FakeService::Run(const Script& script) {
  for (;;) {
    pollfd wanted[] = {{listener_, POLLIN, 0}, {stop_, POLLIN, 0}};
    poll(wanted, 2, -1);
    if (wanted[1].revents != 0) return;
    const int socket = accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
    timeval patience{};
    patience.tv_sec = static_cast<decltype(patience.tv_sec)>(kPatience.count());
    setsockopt(socket, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof(patience));
    setsockopt(socket, SOL_SOCKET, SO_SNDTIMEO, &patience, sizeof(patience));
    script(FakeConnection(socket));
    close(socket);
  }
}

}  // namespace valmere::test
