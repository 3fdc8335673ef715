// A driver library that is not ours to trust: it answers what the test asks it to, and writes each
// call to the file named by FAKE_DRIVER_LOG, if any, one line a call.
//
// A frame's text says what becomes of it:
//   {"Disconnect": true}   the session ends
//   end                    the session ends
//   refuse                 PRN_Write fails
//   silent                 nothing comes back
//   slow and so on         the same, after a moment
//   bytes N                a frame of N bytes of text comes back
//   a set of the property that loads the property file
//                          the frame comes back once a client says that the file is loaded
//   a get of all properties, or of some
//                          the answer is that there are none
//   loaded                 the file is; the frame itself comes back too
//   loads end              the sessions that wait for a load end; the frame itself comes back
//   cut off                the identifier of a frame comes back and nothing more; closing the handle
//                          then takes until its reader asks for the next frame, or a while
//   anything else          the frame itself comes back
// Bytes that are no frame end the session once there are 16 of them. With FAKE_DRIVER_SIGNAL in the
// environment, PRN_Init takes so long that SIGTERM comes meanwhile.
#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include "driver/prn.h"
#include "protocol/wire/message_frame.h"

namespace {

constexpr char kLoadProperties[] = "0D9B0F83-2282-4728-A78E-FE2FF4E3A13C";

struct Session {
  std::string replies;
  std::string held;  // comes back when the property file is loaded
  bool ended = false;
  bool cut_off = false;
};

std::mutex lock;
std::condition_variable changed;
std::map<uint32_t, std::shared_ptr<Session>> sessions;
uint32_t last_handle = 0;
uint32_t reads_of_the_closed = 0;

void Log(const std::string& line) {
  static const char* path = std::getenv("FAKE_DRIVER_LOG");
  static std::FILE* file = path != nullptr ? std::fopen(path, "a") : nullptr;
  if (file == nullptr) return;
  std::fprintf(file, "%s\n", line.c_str());
  std::fflush(file);
}

std::shared_ptr<Session> Find(uint32_t handle) {
  const auto found = sessions.find(handle);
  return found == sessions.end() ? nullptr : found->second;
}

std::string Frame(const std::string& text) {
  std::string frame;
  valmere::BeginFrame(frame);
  frame += text;
  valmere::EndFrame(frame);
  return frame;
}

bool IsFrame(const std::string& bytes) {
  return bytes.size() >= valmere::kFrameHeaderBytes &&
         bytes.compare(0, valmere::kFrameHeaderBytes,
                       Frame(bytes.substr(valmere::kFrameHeaderBytes)), 0,
                       valmere::kFrameHeaderBytes) == 0;
}

void EndLoads(const std::string& how) {
  for (const auto& [handle, session] : sessions) {
    if (session->held.empty()) continue;
    if (how == "loaded") session->replies += session->held;
    session->ended = how == "loads end";
    session->held.clear();
  }
}

void Answer(uint32_t handle, Session& session, const std::string& frame) {
  const std::string text = frame.substr(valmere::kFrameHeaderBytes);
  if (text.find(kLoadProperties) != std::string::npos) {
    Log("load " + std::to_string(handle));
    session.held = frame;
    return;
  }
  if (text.find("GetAllProperties") != std::string::npos ||
      text.find("PropertyGetRequests") != std::string::npos) {
    session.replies += Frame(R"({"PropertyGetResponses": []})");
    return;
  }
  if (text == "loaded" || text == "loads end") EndLoads(text);
  if (text == R"({"Disconnect": true})" || text == "end") {
    session.ended = true;
  } else if (text.starts_with("bytes ")) {
    session.replies += Frame(std::string(std::stoul(text.substr(6)), 'x'));
  } else if (text == "cut off") {
    session.replies += frame.substr(0, valmere::kStreamFormatIdentifier.size());
    session.cut_off = true;
  } else if (text != "silent" && !text.starts_with("slow")) {
    session.replies += frame;
  }
}

}  // namespace

#define FAKE_ENTRY extern "C" __attribute__((visibility("default")))

FAKE_ENTRY uint32_t PRN_Init(uint32_t) {
  Log("init " + std::string(std::getenv("VALMERE_ROOT")) + " log " +
      std::getenv("VALMERE_MAX_LOG"));
  if (std::getenv("FAKE_DRIVER_SIGNAL") != nullptr) std::raise(SIGTERM);
  return 1;
}

FAKE_ENTRY uint32_t PRN_Deinit(uint32_t context) {
  const std::lock_guard hold(lock);
  Log("deinit " + std::to_string(context) + " open " + std::to_string(sessions.size()));
  return 1;
}

FAKE_ENTRY uint32_t PRN_Open(uint32_t, uint32_t, uint32_t) {
  const std::lock_guard hold(lock);
  sessions[++last_handle] = std::make_shared<Session>();
  Log("open " + std::to_string(last_handle));
  return last_handle;
}

FAKE_ENTRY uint32_t PRN_Close(uint32_t handle) {
  std::unique_lock hold(lock);
  const auto session = Find(handle);
  Log("close " + std::to_string(handle));
  if (session == nullptr) return 0;
  session->ended = true;
  sessions.erase(handle);
  changed.notify_all();
  if (session->cut_off) {
    constexpr std::chrono::milliseconds kWhile{300};
    const uint32_t before = reads_of_the_closed;
    changed.wait_for(hold, kWhile, [&] { return reads_of_the_closed != before; });
  }
  return 1;
}

FAKE_ENTRY uint32_t PRN_Read(uint32_t handle, void* buffer, uint32_t count) {
  std::unique_lock hold(lock);
  const auto session = Find(handle);
  if (session == nullptr) {
    ++reads_of_the_closed;
    changed.notify_all();
    return count;
  }
  changed.wait(hold, [&] { return session->ended || !session->replies.empty(); });
  const std::size_t copied = std::min<std::size_t>(count, session->replies.size());
  std::memcpy(buffer, session->replies.data(), copied);
  session->replies.erase(0, copied);
  return count;
}

FAKE_ENTRY int32_t PRN_Write(uint32_t handle, const void* buffer, uint32_t count) {
  const std::string bytes(static_cast<const char*>(buffer), count);
  constexpr std::chrono::milliseconds kMoment{2};
  if (bytes.compare(std::min<std::size_t>(count, 20), 4, "slow") == 0)
    std::this_thread::sleep_for(kMoment);
  const std::lock_guard hold(lock);
  const auto session = Find(handle);
  const bool frame = IsFrame(bytes);
  const std::string shown = frame && count < 64 ? " " + bytes.substr(20) : "";
  Log("write " + std::to_string(handle) + " " + std::to_string(count) +
      (frame ? " frame" : " bytes") + shown);
  if (session == nullptr || (frame && bytes.substr(20) == "refuse")) return -1;
  if (session->ended) return static_cast<int32_t>(count);
  if (frame)
    Answer(handle, *session, bytes);
  else if (count >= 16)
    session->ended = true;
  changed.notify_all();
  return static_cast<int32_t>(count);
}

#ifndef FAKE_DRIVER_INCOMPLETE
FAKE_ENTRY uint32_t PRN_IOControl(uint32_t, uint32_t, void*, uint32_t, void*, uint32_t, uint32_t*) {
  return 0;
}
#endif
