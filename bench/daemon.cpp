#include "bench/daemon.h"

#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <stdexcept>

#include "protocol/wire/message_frame.h"
#include "tests/support/unix_socket.h"

namespace valmere::bench {
namespace {

constexpr std::size_t kUsualFrame = 4096;

std::string MakeFolder() {
  std::string name = (std::filesystem::temp_directory_path() / "valmere-bench-XXXXXX").string();
  if (mkdtemp(name.data()) == nullptr) throw std::runtime_error("no folder for the service");
  return name;
}

}  // namespace

Daemon::Daemon() : folder_(MakeFolder()), socket_(folder_ + "/socket") {
  int ready[2];
  if (pipe(ready) != 0) throw std::runtime_error("no pipe");
  child_ = fork();
  if (child_ == 0) {
    dup2(ready[1], STDOUT_FILENO);
    execl(VALMERED, VALMERED, "--root", (folder_ + "/root").c_str(), "--socket", socket_.c_str(),
          nullptr);
    _exit(127);
  }
  close(ready[1]);
  char line[256];
  const bool started = read(ready[0], line, sizeof line) > 0;
  close(ready[0]);
  if (!started) throw std::runtime_error("valmered did not start");
}

Daemon::~Daemon() {
  kill(child_, SIGTERM);
  waitpid(child_, nullptr, 0);
  std::filesystem::remove_all(folder_);
}

RawClient::RawClient(const std::string& path)
    : descriptor_(test::ConnectedTo(path)), buffer_(kUsualFrame) {}

RawClient::~RawClient() {
  close(descriptor_);
}

bool RawClient::Send(std::string_view frame) const {
  return test::SendAll(descriptor_, frame);
}

std::size_t RawClient::ReceiveFrame() {
  std::size_t held = 0;
  std::size_t whole = kFrameHeaderBytes;
  while (held < whole) {
    const ssize_t got = recv(descriptor_, buffer_.data() + held, buffer_.size() - held, 0);
    if (got <= 0) return 0;
    held += static_cast<std::size_t>(got);
    if (held < kFrameHeaderBytes) continue;
    const auto* length =
        reinterpret_cast<const unsigned char*>(buffer_.data()) + kStreamFormatIdentifier.size();
    whole = kFrameHeaderBytes + DecodeLength(length);
    if (whole > buffer_.size()) buffer_.resize(whole);
  }
  return whole;
}

std::string PublicationFrame(int count) {
  std::string text = R"({"PropertyGetResponses": [)";
  for (int i = 0; i < count; ++i) {
    char entry[512];
    std::snprintf(entry, sizeof entry,
                  R"(%s{"Component": "6A1D2E3F-0000-4000-8000-000000000001",)"
                  R"("ComponentString": "Print Head","GUID": )"
                  R"("6A1D2E3F-0000-4000-8000-000000000002:6A1D2E3F-0000-4000-8000-1%011d",)"
                  R"("GroupString": "Measurements","NameString": "Measured Property %d",)"
                  R"("Status": "Successful","Value": "%08d"})",
                  i == 0 ? "" : ",", i, i, i);
    text += entry;
  }
  return FrameOf(text + "]}");
}

std::string_view GetText() {
  return R"({"PropertyGetRequests": [{"Component": "955CFDC2-8EA6-478E-A927-7C870022EA03",)"
         R"("GUID": "ADC1E631-2C12-4267-B128-95830EC9857D:955CFDC2-8EA6-478E-A927-7C870022EA03"}]})";
}

}  // namespace valmere::bench
