#include "bench/daemon.h"

#include <algorithm>
#include <filesystem>

#include "bench/messages.h"

namespace valmere::bench {

std::vector<std::string> ValmeredCommand(const Folder& folder) {
  // Where the service keeps its settings, as every device has it.
  std::filesystem::create_directories(folder.Path("root/Store"));
  const std::string socket = folder.Path("socket");
  return {VALMERED, "--root", folder.Path("root"), "--socket", socket, "--max-clients-per-process",
          "2048"};
}

Daemon::Daemon() : socket_(folder_.Path("socket")), program_(ValmeredCommand(folder_)) {
  AwaitAnswer([this] { const SocketClient client(socket_); });
}

void Publish(SocketClient& owner, int count, std::size_t value_bytes) {
  // As programs do that have many: some with each message.
  constexpr int kOfAMessage = 100;
  for (int first = 0; first < count; first += kOfAMessage)
    owner.Send(PublicationFrame(first, std::min(first + kOfAMessage, count), value_bytes));
  // Handled in order: the answer says that all before it has been.
  owner.Send(FrameOf(GetText()));
  owner.ReadFrame();
}

}  // namespace valmere::bench
