// Frames are put together by hand here, so that the library is not tested against itself.
#include "tests/client/fake_service.h"

#include <gtest/gtest.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdint>

#include "tests/support/unix_socket.h"

namespace valmere::test {
namespace {

std::string ReceiveExactly(int socket, std::size_t count) {
  std::string bytes(count, '\0');
  const ssize_t received = recv(socket, bytes.data(), count, MSG_WAITALL);
  return received == static_cast<ssize_t>(count) ? bytes : "";
}

}  // namespace

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
  SendAll(socket_, bytes);
}

void FakeConnection::WaitForEnd() const {
  while (!Receive().empty()) {
  }
}

FakeService::FakeService(Script script)
    : listener_(ListenOn(path_, 10)), stop_(eventfd(0, EFD_CLOEXEC)) {
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
    SetPatience(socket, kPatience);
    script(FakeConnection(socket));
    close(socket);
  }
}

}  // namespace valmere::test
