// The standard library's threads take a stack as large as the main thread's, 8 MiB: a thousand of
// them need more address space than a service under a memory limit may have.
#include "host/system/small_thread.h"

#include <cstddef>
#include <system_error>
#include <utility>

#include "platform/posix/sanitizers.h"

namespace valmere::host {
namespace {

int SetStack([[maybe_unused]] pthread_attr_t* attributes) {
#ifdef VALMERE_SANITIZER
  return 0;
#else
  constexpr std::size_t kStackBytes = 65536;
  return pthread_attr_setstacksize(attributes, kStackBytes);
#endif
}

}  // namespace

SmallThread::SmallThread(std::function<void()> body) : body_(std::move(body)) {
  pthread_attr_t attributes;
  int error = pthread_attr_init(&attributes);
  if (error == 0) {
    error = SetStack(&attributes);
    if (error == 0) error = pthread_create(&thread_, &attributes, &SmallThread::Run, this);
    pthread_attr_destroy(&attributes);
  }
  if (error != 0) throw std::system_error(error, std::generic_category(), "cannot start a thread");
}

void* SmallThread::Run(void* self) {
  static_cast<SmallThread*>(self)->body_();
  return nullptr;
}

}  // namespace valmere::host
