// One flag is both the closed state and what wakes a blocked Accept.
#include "net/null_listener.h"

namespace valmere {
namespace {

constexpr std::uint32_t kClosed = 1;

}  // namespace

NullListener::~NullListener() {
  NullListener::Close();
}

std::shared_ptr<Connection> NullListener::Accept() {
  closed_.Wait(kClosed);
  return nullptr;
}

int NullListener::Open() {
  closed_.Clear(kClosed);
  return 0;
}

void NullListener::Close() {
  closed_.Set(kClosed);
}

}  // namespace valmere
