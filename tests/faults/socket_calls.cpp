// Sockets; see faults.cpp.
#include <sys/epoll.h>
#include <sys/socket.h>
#include <sys/types.h>

#include <atomic>
#include <cerrno>

#include "tests/faults/faults.h"

namespace valmere::test {
namespace {

std::atomic<int> g_waiting_receives{0};

}  // namespace

int WaitingReceives() {
  return g_waiting_receives;
}

// NOLINTBEGIN(bugprone-reserved-identifier): the linker's names
extern "C" {

int __real_accept4(int, sockaddr*, socklen_t*, int);
int __wrap_accept4(int listener, sockaddr* address, socklen_t* size, int flags) {
  if (Refused(Fault::kSocket)) return Refuse(EMFILE);
  return __real_accept4(listener, address, size, flags);
}

ssize_t __real_recv(int, void*, size_t, int);
ssize_t __wrap_recv(int socket, void* buffer, size_t size, int flags) {
  if (Refused(Fault::kSocket)) return Refuse(ECONNRESET);
  const int waiting = OnWorker() && (flags & MSG_DONTWAIT) == 0 ? 1 : 0;
  g_waiting_receives += waiting;
  const ssize_t count = __real_recv(socket, buffer, size, flags);
  g_waiting_receives -= waiting;
  return count;
}

ssize_t __real_send(int, const void*, size_t, int);
ssize_t __wrap_send(int socket, const void* buffer, size_t size, int flags) {
  if (Refused(Fault::kSocket)) return Refuse(ENOBUFS);
  return __real_send(socket, buffer, size, flags);
}

ssize_t __real_sendmsg(int, const msghdr*, int);
ssize_t __wrap_sendmsg(int socket, const msghdr* message, int flags) {
  if (Refused(Fault::kSocket)) return Refuse(ENOBUFS);
  return __real_sendmsg(socket, message, flags);
}

int __real_epoll_ctl(int, int, int, epoll_event*);
int __wrap_epoll_ctl(int poll, int operation, int file, epoll_event* event) {
  if (operation == EPOLL_CTL_ADD && Refused(Fault::kPoll)) return Refuse(ENOMEM);
  return __real_epoll_ctl(poll, operation, file, event);
}

}  // extern "C"
// NOLINTEND(bugprone-reserved-identifier)

}  // namespace valmere::test
