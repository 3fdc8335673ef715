// The handler only writes to an event descriptor of the transport. Handlers are installed without
// SA_RESTART, so that they break off a connect, which has no such descriptor yet.
#include "tools/interrupt.h"

#include <atomic>
#include <csignal>

namespace valmere::tools {
namespace {

std::atomic<client::Client*> watched{nullptr};
std::atomic<bool> interrupted{false};
static_assert(std::atomic<client::Client*>::is_always_lock_free &&
              std::atomic<bool>::is_always_lock_free);

extern "C" void HandleSignal(int) {
  interrupted = true;
  if (client::Client* client = watched) client->Interrupt();
}

void Install(void (*handler)(int)) {
  struct sigaction action {};
  action.sa_handler = handler;
  sigemptyset(&action.sa_mask);
  sigaction(SIGINT, &action, nullptr);
  sigaction(SIGTERM, &action, nullptr);
}

}  // namespace

InterruptOnSignal::InterruptOnSignal() {
  Install(HandleSignal);
}

InterruptOnSignal::~InterruptOnSignal() {
  Install(SIG_DFL);
  watched = nullptr;
}

void InterruptOnSignal::Watch(client::Client& client) {
  watched = &client;
  if (interrupted) client.Interrupt();
}

}  // namespace valmere::tools
