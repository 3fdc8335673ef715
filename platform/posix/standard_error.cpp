// The descriptor's mode is shared with other processes, so it is never made non-blocking. What
// blocks is opened once more for each line, which gives a description of our own: nothing has to be
// kept in step with a standard error that the program replaces, and no lock is needed. It costs
// three system calls where there are few lines.
#include "platform/standard_error.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <climits>

#include "platform/posix/descriptor.h"

namespace valmere::platform {
namespace {

static_assert(kMostOfferedBytes <= PIPE_BUF);

Taken TakenOf(ssize_t count, std::size_t whole) {
  if (count <= 0) return Taken::kNothing;
  return static_cast<std::size_t>(count) == whole ? Taken::kAll : Taken::kPart;
}

sigset_t SetOf(std::initializer_list<int> signals) {
  sigset_t set;
  sigemptyset(&set);
  for (const int number : signals)
    sigaddset(&set, number);
  return set;
}

// Writes without the signals that this may raise: for a pipe without a reader, and for the terminal
// of a background process, where it would stop the whole process.
ssize_t WriteWithoutSignals(int descriptor, std::string_view bytes) {
  const sigset_t held = SetOf({SIGPIPE, SIGTTOU});
  sigset_t before;
  pthread_sigmask(SIG_BLOCK, &held, &before);
  sigset_t pending;
  sigpending(&pending);
  const ssize_t count = write(descriptor, bytes.data(), bytes.size());
  if (count < 0 && errno == EPIPE && sigismember(&pending, SIGPIPE) == 0) {
    const sigset_t raised = SetOf({SIGPIPE});
    const timespec no_wait{};
    sigtimedwait(&raised, nullptr, &no_wait);
  }
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
  return count;
}

// O_APPEND for the case that a file has taken the descriptor's place meanwhile.
Descriptor OpenOnceMore() {
  return Descriptor(
      open("/proc/self/fd/2", O_WRONLY | O_APPEND | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
}

// To a pipe, a terminal or another device.
ssize_t WriteToDevice(std::string_view bytes) {
  const Descriptor own = OpenOnceMore();
  if (own.valid()) return WriteWithoutSignals(own.get(), bytes);
  if (errno == ENXIO) return -1;  // the other end has no reader
  // It belongs to another user, or there are no more descriptors. A pipe with any room at all has
  // room for a line; but if another process fills it between the two calls, this one waits.
  pollfd room{STDERR_FILENO, POLLOUT, 0};
  if (poll(&room, 1, 0) != 1 || room.revents != POLLOUT) return -1;
  return WriteWithoutSignals(STDERR_FILENO, bytes);
}

ssize_t WriteToStandardError(std::string_view bytes) {
  struct stat status {};
  if (fstat(STDERR_FILENO, &status) != 0) return -1;
  if (S_ISSOCK(status.st_mode))
    return send(STDERR_FILENO, bytes.data(), bytes.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
  // By the descriptor that all share, and so behind what others have written.
  if (S_ISREG(status.st_mode)) return write(STDERR_FILENO, bytes.data(), bytes.size());
  return WriteToDevice(bytes);
}

}  // namespace

Taken OfferToStandardError(std::string_view bytes) noexcept {
  const int before = errno;
  const Taken taken = TakenOf(WriteToStandardError(bytes), bytes.size());
  errno = before;
  return taken;
}

}  // namespace valmere::platform
