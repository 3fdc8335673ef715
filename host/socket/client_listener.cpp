// The kernel tells when a silent client speaks, so the accepting thread is all that it needs.
#include "host/socket/client_listener.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <exception>
#include <string>
#include <system_error>
#include <utility>

#include "host/socket/client_stream.h"
#include "host/socket/epoll.h"

namespace valmere::host {
namespace {

constexpr char kAcceptPurpose[] = "can't wait for clients";
constexpr std::chrono::milliseconds kAcceptPause{100};

// A frame leaves in one send and its answer is waited for, so a short segment must not be held back.
// A peer that has vanished without a word is found out by the kernel. Local sockets refuse both.
void PrepareInternetSocket(int socket) {
  const int on = 1;
  setsockopt(socket, IPPROTO_TCP, TCP_NODELAY, &on, sizeof(on));
  setsockopt(socket, SOL_SOCKET, SO_KEEPALIVE, &on, sizeof(on));
}

enum class Said { kNothingYet, kSomething, kItsLast };

Said Listen(int socket) {
  char byte = 0;
  const ssize_t count = recv(socket, &byte, 1, MSG_PEEK | MSG_DONTWAIT);
  if (count > 0) return Said::kSomething;
  const bool open = count < 0 && (errno == EAGAIN || errno == EINTR);
  return open ? Said::kNothingYet : Said::kItsLast;
}

}  // namespace

ClientListener::ClientListener(std::vector<int> sockets, std::function<void()> stop_listening,
                               std::shared_ptr<Clients> clients, UnreadWatch& watch)
    : clients_(std::move(clients)),
      watch_(watch),
      wake_(MakeWakeEvent(kAcceptPurpose)),
      poll_(MakeEpoll(wake_.get(), kAcceptPurpose)),
      stop_listening_(std::move(stop_listening)),
      sockets_(std::move(sockets)) {
  ResumeAccepting();
}

void ClientListener::Close() {
  closed_ = true;
  eventfd_write(wake_.get(), 1);
}

void ClientListener::Finish() {
  finishing_ = true;
  eventfd_write(wake_.get(), 1);
}

std::shared_ptr<Connection> ClientListener::Accept() {
  while (!closed_) {
    if (finishing_) {
      StopAccepting();
      if (auto last = TakeLast()) return last;
    }
    if (paused_until_ && Clock::now() >= *paused_until_) ResumeAccepting();
    epoll_event event{};
    if (epoll_wait(poll_.get(), &event, 1, TimeLeft()) != 1) continue;
    if (auto connection = Handle(event.data.fd)) return connection;
  }
  return nullptr;
}

std::shared_ptr<Connection> ClientListener::Handle(int descriptor) {
  try {
    eventfd_t wakes = 0;
    if (descriptor == wake_.get()) {
      if (!closed_) eventfd_read(wake_.get(), &wakes);
      return nullptr;
    }
    if (std::find(sockets_.begin(), sockets_.end(), descriptor) != sockets_.end())
      return AcceptFrom(descriptor);
    RemoveFromEpoll(poll_.get(), descriptor);
    auto speaking = silent_.extract(descriptor);
    return Judge(std::move(speaking.mapped()));
  } catch (const std::exception& error) {
    TryReport([&] { return std::string("cannot serve a client: ") + error.what(); }, ReportClient);
    return nullptr;
  }
}

std::shared_ptr<Connection> ClientListener::AcceptFrom(int listening) {
  platform::Descriptor socket(accept4(listening, nullptr, nullptr, SOCK_CLOEXEC));
  if (!socket.valid()) {
    // A client that went before it was accepted leaves nothing behind.
    if (errno != EAGAIN && errno != EINTR && errno != ECONNABORTED) PauseAccepting(errno);
    return nullptr;
  }
  Peer peer = PeerOf(socket.get());
  if (peer.process == 0) PrepareInternetSocket(socket.get());
  auto place = clients_->Admit(peer);
  // One over a limit is taken out of the queue and closed, so that it sees the end at once.
  if (!place) return nullptr;
  return Judge({std::move(socket), std::move(peer), std::move(*place)});
}

std::shared_ptr<Connection> ClientListener::Judge(Silent silent) {
  const int socket = silent.socket.get();
  const Said said = Listen(socket);
  if (said == Said::kSomething) return StreamOf(std::move(silent));
  if (said == Said::kItsLast) return nullptr;
  const auto place = silent_.emplace(socket, std::move(silent)).first;
  if (!AddToEpoll(poll_.get(), socket, EPOLLIN | EPOLLRDHUP)) silent_.erase(place);
  return nullptr;
}

std::shared_ptr<Connection> ClientListener::StreamOf(Silent silent) {
  return std::make_shared<ClientStream>(std::move(silent.socket), std::move(silent.peer),
                                        std::move(silent.place), clients_, watch_);
}

// Those that have said nothing by now are dropped on the way.
std::shared_ptr<Connection> ClientListener::TakeLast() {
  while (!silent_.empty()) {
    auto client = silent_.extract(silent_.begin());
    RemoveFromEpoll(poll_.get(), client.key());
    if (Listen(client.key()) == Said::kSomething) return StreamOf(std::move(client.mapped()));
  }
  return nullptr;
}

void ClientListener::StopAccepting() {
  if (sockets_.empty()) return;
  for (const int socket : sockets_)
    RemoveFromEpoll(poll_.get(), socket);
  sockets_.clear();
  stop_listening_();
}

// Mostly there are no descriptors or there is no memory. The client stays in the queue, so the socket
// stays readable: without a pause this would never rest.
void ClientListener::PauseAccepting(int error) {
  const bool out = error == EMFILE || error == ENFILE || error == ENOMEM || error == ENOBUFS;
  if (paused_.Count())
    TryReport([&] {
      return (out ? std::string("out of descriptors or memory")
                  : std::error_code(error, std::generic_category()).message()) +
             "; clients have to wait";
    });
  for (const int socket : sockets_)
    RemoveFromEpoll(poll_.get(), socket);
  paused_until_ = Clock::now() + kAcceptPause;
}

// Takes memory of the kernel's, which may be what was lacking.
void ClientListener::ResumeAccepting() {
  paused_until_.reset();
  for (const int socket : sockets_)
    if (!AddToEpoll(poll_.get(), socket, EPOLLIN)) return PauseAccepting(ENOMEM);
}

// For the next wait, in milliseconds; -1 is for ever.
int ClientListener::TimeLeft() const {
  if (!paused_until_) return -1;
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(*paused_until_ - Clock::now());
  return std::max(0, static_cast<int>(left.count()));
}

}  // namespace valmere::host
