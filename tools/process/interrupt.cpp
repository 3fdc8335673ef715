// The handler only writes to event descriptors: the transports', and one that a wait without a
// transport polls; once written, that one stays readable. Handlers are installed without
// SA_RESTART, so that they break off a connect, which has no such descriptor yet.
#include "tools/process/interrupt.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <climits>
#include <cstdint>
#include <system_error>

namespace valmere::tools {
namespace {

using client::Client;

std::array<std::atomic<Client*>, InterruptOnSignal::kMostClients> watched{};
std::atomic<bool> interrupted{false};
std::atomic<int> event{-1};
static_assert(std::atomic<Client*>::is_always_lock_free && std::atomic<bool>::is_always_lock_free &&
              std::atomic<int>::is_always_lock_free);

extern "C" void HandleSignal(int) {
  interrupted = true;
  const int saved = errno;
  const std::uint64_t one = 1;
  [[maybe_unused]] const ssize_t written = write(event, &one, sizeof(one));
  errno = saved;
  for (const auto& slot : watched)
    if (Client* client = slot) client->Interrupt();
}

void Replace(Client* from, Client* to) {
  const auto slot =
      std::find_if(watched.begin(), watched.end(), [&](const auto& held) { return held == from; });
  if (slot != watched.end()) *slot = to;
}

}  // namespace

InterruptOnSignal::InterruptOnSignal() : interrupt_before_{}, terminate_before_{} {
  interrupted = false;
  event = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
  if (event < 0) throw std::system_error(errno, std::generic_category(), "eventfd");
  struct sigaction action {};
  action.sa_handler = HandleSignal;
  sigemptyset(&action.sa_mask);
  sigaction(SIGINT, &action, &interrupt_before_);
  sigaction(SIGTERM, &action, &terminate_before_);
}

InterruptOnSignal::~InterruptOnSignal() {
  sigaction(SIGINT, &interrupt_before_, nullptr);
  sigaction(SIGTERM, &terminate_before_, nullptr);
  for (auto& slot : watched)
    slot = nullptr;
  close(event.exchange(-1));
}

void InterruptOnSignal::Watch(Client& client) {
  Replace(nullptr, &client);
  if (interrupted) client.Interrupt();
}

void InterruptOnSignal::Forget(Client& client) {
  Replace(&client, nullptr);
}

bool InterruptOnSignal::WaitUntil(client::Deadline deadline) const {
  while (!deadline.passed()) {
    pollfd wanted{event, POLLIN, 0};
    const auto left = std::min<std::int64_t>(deadline.left().count(), INT_MAX);
    if (poll(&wanted, 1, static_cast<int>(left)) > 0) return false;
  }
  return !interrupted;
}

}  // namespace valmere::tools
