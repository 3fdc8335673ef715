// A client's stream of valmered, from the socket up to whole messages. The input's first byte tells
// how the client ends, the second the number of pieces but the last; the next bytes are their
// lengths, a pause behind them where the highest bit is set; the rest is what the client sends. Each
// message is answered with a frame so long that a few of them have to wait for the client.
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <ctime>
#include <memory>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include "host/socket/client_stream.h"
#include "host/socket/clients.h"
#include "host/socket/peer.h"
#include "host/socket/unread_watch.h"
#include "json/json_writer.h"
#include "net/client_connection.h"
#include "protocol/message/property_message.h"
#include "protocol/stream/json_message_handler.h"
#include "protocol/stream/peekable_stream.h"
#include "tests/fuzz/frames_received.h"
#include "tests/fuzz/fuzz_target.h"
#include "tests/support/frames.h"
#include "tests/support/unix_socket.h"

namespace valmere::test {
namespace {

constexpr unsigned kMostPieces = 8;
constexpr long kPauseNanoseconds = 50'000;

// What answers each message.
const std::string& Answer() {
  static const std::string frame =
      FrameOf(R"({"PropertyGetResponses": []})" + std::string(100'000, ' '));
  return frame;
}

// Purpose: the bytes that a client sends, without a socket: each read gets all that it asks for.
// Owner: the target. Threads: one. Errors: kGone at the end.
class BytesInMemory : public Connection {
 public:
  explicit BytesInMemory(std::string_view bytes) : left_(bytes) {}

  int Read(void* buffer, int length) override {
    const std::size_t count = std::min(left_.size(), static_cast<std::size_t>(length));
    if (count == 0) return kGone;
    std::memcpy(buffer, left_.data(), count);
    left_.remove_prefix(count);
    return static_cast<int>(count);
  }
  int Write(const void* /*buffer*/, int length) override { return length; }
  void Close() override {}
  bool IsOpen() const override { return true; }

 private:
  std::string_view left_;
};

// Reads a connection as the service does, and answers each message; what they were, as texts.
std::vector<std::string> ServeToTheEnd(const std::shared_ptr<Connection>& connection) {
  const auto stream =
      std::make_shared<PeekableStream>(std::make_shared<ClientConnection>(connection));
  const JsonMessageFactory factory;
  std::vector<std::string> texts;
  bool framed = false;
  while (!framed && stream->Peek(static_cast<int>(kStreamFormatIdentifier.size())))
    framed = factory.Score(*stream) == 0;
  PropertyMessage message;
  while (framed && message.Read(*stream)) {
    WriteJson(message.object(), texts.emplace_back());
    const int length = static_cast<int>(Answer().size());
    Require(stream->Write(Answer().data(), length) == length, "an answer is taken");
    message.Clear();
  }
  stream->Close();
  return texts;
}

// What all clients of a run share.
struct Host {
  host::Limits limits;
  std::shared_ptr<host::Clients> clients =
      std::make_shared<host::Clients>(limits, host::Clients::Events{});
  host::UnreadWatch watch{limits.unread};
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

enum End : unsigned { kHalfClose, kCloseAtOnce, kShutDown, kEnds };

// All that it sends fits into the socket, so it needs not read meanwhile.
std::string Talk(int client, End end, std::string_view lengths, std::string_view stream) {
  std::string received;
  for (const char byte : lengths) {
    const auto length = static_cast<unsigned char>(byte);
    const std::string_view piece = stream.substr(0, length & 0x7F);
    stream.remove_prefix(piece.size());
    if (!SendAll(client, piece)) break;
    if ((length & 0x80) != 0) Pause(client, received);
  }
  SendAll(client, stream);
  if (end == kCloseAtOnce) return received;
  shutdown(client, end == kHalfClose ? SHUT_WR : SHUT_RDWR);
  Receive(client, 0, received);
  return received;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static Host host;
  Choices choices(data, size);
  const auto end = static_cast<End>(choices.Byte() % kEnds);
  const std::string_view lengths = choices.Bytes(choices.Byte() % kMostPieces);
  const std::string stream(choices.Rest());

  int ends[2];
  Require(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) == 0, "there are sockets");
  host::Peer peer = host::PeerOf(ends[0]);
  auto place = host.clients->Admit(peer);
  Require(place.has_value(), "the clients before have gone");
  auto served = std::make_shared<host::ClientStream>(platform::Descriptor(ends[0]), std::move(peer),
                                                     std::move(*place), host.clients, host.watch);
  std::vector<std::string> texts;
  std::thread server([&] { texts = ServeToTheEnd(std::exchange(served, nullptr)); });
  const std::string received = Talk(ends[1], end, lengths, stream);
  if (end != kHalfClose) close(ends[1]);
  server.join();
  if (end == kHalfClose) close(ends[1]);

  Require(texts == ServeToTheEnd(std::make_shared<BytesInMemory>(stream)),
          "the messages are those that were sent");
  const std::string_view cut = RequireFrames(received);
  if (end != kHalfClose) return 0;
  Require(cut.empty() && received.size() == texts.size() * Answer().size(),
          "each message is answered, and nothing else");
  return 0;
}

}  // namespace valmere::test
