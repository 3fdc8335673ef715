#include "host/socket/epoll.h"

#include <sys/epoll.h>
#include <sys/eventfd.h>

#include <cerrno>
#include <system_error>

namespace valmere::host {
namespace {

platform::Descriptor Made(int descriptor, const std::string& purpose) {
  if (descriptor < 0) throw std::system_error(errno, std::generic_category(), purpose);
  return platform::Descriptor(descriptor);
}

}  // namespace

platform::Descriptor MakeWakeEvent(const std::string& purpose) {
  return Made(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK), purpose);
}

platform::Descriptor MakeEpoll(int wake_event, const std::string& purpose) {
  platform::Descriptor epoll = Made(epoll_create1(EPOLL_CLOEXEC), purpose);
  if (!AddToEpoll(epoll.get(), wake_event, EPOLLIN))
    throw std::system_error(errno, std::generic_category(), purpose);
  return epoll;
}

bool AddToEpoll(int epoll, int descriptor, std::uint32_t events) noexcept {
  epoll_event event{};
  event.events = events;
  event.data.fd = descriptor;
  return epoll_ctl(epoll, EPOLL_CTL_ADD, descriptor, &event) == 0;
}

void RemoveFromEpoll(int epoll, int descriptor) noexcept {
  epoll_ctl(epoll, EPOLL_CTL_DEL, descriptor, nullptr);
}

}  // namespace valmere::host
