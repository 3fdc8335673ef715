// Entry points of a driver that the test of its transport links. A frame's text says what becomes
// of it:
//   end         the session ends
//   refuse      PRN_Write fails
//   silent      nothing comes back
//   bytes N     a frame of N bytes of text comes back
//   anything    the frame itself comes back
#include <algorithm>
#include <condition_variable>
#include <cstring>
#include <map>
#include <memory>
#include <mutex>
#include <string>

#include "driver/prn.h"
#include "protocol/wire/message_frame.h"
#include "tests/support/frames.h"

namespace {

struct Session {
  std::string replies;
  bool ended = false;
};

std::mutex g_lock;
std::condition_variable g_changed;
std::map<std::uint32_t, std::shared_ptr<Session>> g_sessions;
std::uint32_t g_last_handle = 0;

std::shared_ptr<Session> Find(std::uint32_t handle) {
  const auto found = g_sessions.find(handle);
  return found == g_sessions.end() ? nullptr : found->second;
}

void Answer(Session& session, const std::string& frame) {
  const std::string text = frame.substr(valmere::kFrameHeaderBytes);
  if (text == "end")
    session.ended = true;
  else if (text.starts_with("bytes "))
    session.replies += valmere::test::FrameOf(std::string(std::stoul(text.substr(6)), 'x'));
  else if (text != "silent")
    session.replies += frame;
}

}  // namespace

std::uint32_t PRN_Open(std::uint32_t, std::uint32_t, std::uint32_t) {
  const std::lock_guard hold(g_lock);
  g_sessions[++g_last_handle] = std::make_shared<Session>();
  return g_last_handle;
}

std::uint32_t PRN_Close(std::uint32_t handle) {
  const std::lock_guard hold(g_lock);
  const auto session = Find(handle);
  if (session == nullptr) return 0;
  session->ended = true;
  g_sessions.erase(handle);
  g_changed.notify_all();
  return 1;
}

std::uint32_t PRN_Read(std::uint32_t handle, void* buffer, std::uint32_t count) {
  std::unique_lock hold(g_lock);
  const auto session = Find(handle);
  if (session == nullptr) return count;
  g_changed.wait(hold, [&] { return session->ended || !session->replies.empty(); });
  const std::size_t copied = std::min<std::size_t>(count, session->replies.size());
  std::memcpy(buffer, session->replies.data(), copied);
  session->replies.erase(0, copied);
  return count;
}

std::int32_t PRN_Write(std::uint32_t handle, const void* buffer, std::uint32_t count) {
  const std::string frame(static_cast<const char*>(buffer), count);
  const std::lock_guard hold(g_lock);
  const auto session = Find(handle);
  if (session == nullptr || frame == valmere::test::FrameOf("refuse")) return -1;
  if (!session->ended) Answer(*session, frame);
  g_changed.notify_all();
  return static_cast<std::int32_t>(count);
}
