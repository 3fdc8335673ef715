// A driver library that gives every frame back. It takes no memory and starts no thread, so that
// all that is refused is refused to valmered. What it is asked to end, as valmered asks, it ends.
#include <algorithm>
#include <array>
#include <condition_variable>
#include <cstring>
#include <mutex>
#include <string_view>

#include "driver/prn.h"

namespace {

struct Session {
  std::array<char, 1 << 20> bytes;
  std::size_t size;
  std::uint32_t handle;  // 0 while it is free
  bool ended;
};

std::mutex g_lock;
std::condition_variable g_changed;
std::array<Session, 16> g_sessions;
std::uint32_t g_opened = 0;

Session& PlaceOf(std::uint32_t handle) {
  return g_sessions[handle % g_sessions.size()];
}

Session* Find(std::uint32_t handle) {
  Session& session = PlaceOf(handle);
  return handle != 0 && session.handle == handle ? &session : nullptr;
}

}  // namespace

#define ECHO_ENTRY extern "C" __attribute__((visibility("default")))

ECHO_ENTRY uint32_t PRN_Init(uint32_t) {
  return 1;
}
ECHO_ENTRY uint32_t PRN_Deinit(uint32_t) {
  return 1;
}

ECHO_ENTRY uint32_t PRN_Open(uint32_t, uint32_t, uint32_t) {
  const std::lock_guard hold(g_lock);
  while (PlaceOf(++g_opened).handle != 0) {
  }
  Session& session = PlaceOf(g_opened);
  session.handle = g_opened;
  session.size = 0;
  session.ended = false;
  return g_opened;
}

ECHO_ENTRY uint32_t PRN_Close(uint32_t handle) {
  const std::lock_guard hold(g_lock);
  Session* const session = Find(handle);
  if (session == nullptr) return 0;
  session->handle = 0;
  g_changed.notify_all();
  return 1;
}

ECHO_ENTRY uint32_t PRN_Read(uint32_t handle, void* buffer, uint32_t count) {
  std::unique_lock hold(g_lock);
  g_changed.wait(hold, [&] {
    const Session* const session = Find(handle);
    return session == nullptr || session->ended || session->size > 0;
  });
  Session* const session = Find(handle);
  if (session == nullptr || session->size == 0) return count;
  const std::size_t copied = std::min<std::size_t>(count, session->size);
  std::memcpy(buffer, session->bytes.data(), copied);
  session->size -= copied;
  std::memmove(session->bytes.data(), session->bytes.data() + copied, session->size);
  return count;
}

ECHO_ENTRY int32_t PRN_Write(uint32_t handle, const void* buffer, uint32_t count) {
  const std::lock_guard hold(g_lock);
  Session* const session = Find(handle);
  if (session == nullptr || count > session->bytes.size() - session->size) return -1;
  const std::string_view bytes(static_cast<const char*>(buffer), count);
  if (bytes.ends_with(R"({"Disconnect": true})")) {
    session->ended = true;
  } else {
    bytes.copy(session->bytes.data() + session->size, count);
    session->size += count;
  }
  g_changed.notify_all();
  return static_cast<int32_t>(count);
}

ECHO_ENTRY uint32_t PRN_IOControl(uint32_t, uint32_t, void*, uint32_t, void*, uint32_t, uint32_t*) {
  return 0;
}
