// Streams of clients without a server, and the other ends of their sockets.
#pragma once

#include <poll.h>
#include <sys/socket.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstddef>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

#include "host/socket/client_stream.h"
#include "host/socket/clients.h"
#include "host/socket/limits.h"
#include "host/socket/peer.h"
#include "host/socket/unread_watch.h"
#include "platform/posix/descriptor.h"
#include "tests/host/subprocess.h"
#include "tests/support/unix_socket.h"

namespace valmere::test {

// Where a test uses the service's end itself.
struct SocketPair {
  platform::Descriptor service;
  platform::Descriptor client;
};

inline SocketPair MakeSocketPair() {
  int ends[2] = {-1, -1};
  if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0) return {};
  return {platform::Descriptor(ends[0]), platform::Descriptor(ends[1])};
}

// Purpose: the client's end of a socket.
// Owner: a test.
// Threads: one.
// Errors: a read that takes longer than kPatience ends with what has come.
class ClientEnd {
 public:
  explicit ClientEnd(platform::Descriptor socket) : socket_(std::move(socket)) {
    SetPatience(socket_.get(), kPatience);
  }

  int descriptor() const { return socket_.get(); }
  bool Send(std::string_view bytes) const { return SendAll(socket_.get(), bytes); }
  // So many bytes, or all until the end if that comes first.
  std::string Read(std::size_t most) {
    std::string bytes(most, '\0');
    std::size_t count = 0;
    while (count < most) {
      const ssize_t got = recv(socket_.get(), bytes.data() + count, most - count, 0);
      if (got <= 0) {
        ended_ = got == 0 || errno == ECONNRESET || errno == EPIPE;
        break;
      }
      count += static_cast<std::size_t>(got);
    }
    bytes.resize(count);
    return bytes;
  }
  // What is there by now.
  std::string ReadThere() const {
    std::string bytes;
    char part[65536];
    ssize_t got = 0;
    while ((got = recv(socket_.get(), part, sizeof part, MSG_DONTWAIT)) > 0) {
      bytes.append(part, static_cast<std::size_t>(got));
    }
    return bytes;
  }
  // Drops what comes until the service has closed it; false when it does not.
  bool ReachesEnd() {
    while (!Read(65536).empty()) {
    }
    return ended_;
  }
  void FinishSending() const { shutdown(socket_.get(), SHUT_WR); }
  void Close() { platform::Descriptor(std::move(socket_)); }

 private:
  platform::Descriptor socket_;
  bool ended_ = false;
};

// Purpose: what valmered has for all of its clients.
// Owner: a test. Streams that it made may not outlive it.
// Threads: one.
// Errors: none.
class ServedClients {
 public:
  explicit ServedClients(const host::Limits& limits = {})
      : clients_(std::make_shared<host::Clients>(limits, [this] { ++all_gone_; })),
        watch_(limits.unread) {}
  ~ServedClients() { clients_->Detach(); }
  ServedClients(const ServedClients&) = delete;
  ServedClients& operator=(const ServedClients&) = delete;

  std::shared_ptr<host::ClientStream> Serve(platform::Descriptor socket) {
    host::Peer peer = host::PeerOf(socket.get());
    auto place = clients_->Admit(peer);
    if (!place) return nullptr;
    return std::make_shared<host::ClientStream>(std::move(socket), std::move(peer),
                                                std::move(*place), clients_, watch_);
  }
  const std::shared_ptr<host::Clients>& clients() const { return clients_; }
  host::UnreadWatch& watch() { return watch_; }
  int all_gone() const { return all_gone_; }

 private:
  std::atomic<int> all_gone_{0};
  const std::shared_ptr<host::Clients> clients_;
  host::UnreadWatch watch_;
};

inline host::Limits WithUnreadTime(std::chrono::milliseconds time) {
  host::Limits limits;
  limits.unread = time;
  return limits;
}

// One client of it.
struct ServedClient {
  explicit ServedClient(const host::Limits& limits = {}, SocketPair pair = MakeSocketPair())
      : all(limits), end(std::move(pair.client)), stream(all.Serve(std::move(pair.service))) {}

  // What one call reads, or the error's number.
  std::string Read(std::size_t most) const {
    std::string bytes(most, '\0');
    const int count = stream->Read(bytes.data(), static_cast<int>(most));
    if (count < 0) return std::to_string(count);
    bytes.resize(static_cast<std::size_t>(count));
    return bytes;
  }
  // What is read until so many bytes have come or the stream ends.
  std::string ReadAll(std::size_t most) const {
    std::string bytes(most, '\0');
    std::size_t count = 0;
    while (count < most) {
      const int got = stream->Read(bytes.data() + count, static_cast<int>(most - count));
      if (got < 1) break;
      count += static_cast<std::size_t>(got);
    }
    bytes.resize(count);
    return bytes;
  }
  int Write(std::string_view bytes) const {
    return stream->Write(bytes.data(), static_cast<int>(bytes.size()));
  }
  int WriteShared(const SharedFrame& frame) const {
    EventFlags::PendingWake wake;
    return stream->WriteShared(frame, wake);
  }
  int WriteForOther(const SharedFrame& frame) const {
    EventFlags::PendingWake wake;
    return stream->WriteForOther(frame, wake);
  }

  ServedClients all;
  ClientEnd end;
  std::shared_ptr<host::ClientStream> stream;
};

// More than a socket's buffers take.
inline constexpr std::size_t kLongAnswer = std::size_t{8} << 20;

inline SharedFrame SharedOf(std::size_t size, char filler = 'x') {
  return std::make_shared<const std::string>(size, filler);
}

}  // namespace valmere::test
