// What an end of the service takes beyond its grace of 3 s, while clients keep it at work on messages
// of the full length. Prints a line for each kind of message and number of clients: the median and the
// largest of some ends beside the aim and the limit, and how many were clean.
#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "driver/prn.h"
#include "protocol/message_frame.h"

namespace {

using Clock = std::chrono::steady_clock;
using Milliseconds = std::chrono::duration<double, std::milli>;

constexpr int kEnds = 3;
constexpr double kAim = 50;
constexpr double kLimit = 500;

// A frame of the full length: `begin`, as many pieces as fit, `end`. A '#' in the piece counts up.
std::string LongFrame(const std::string& begin, const std::string& piece, const std::string& end) {
  std::string frame;
  valmere::BeginFrame(frame);
  frame += begin;
  const std::size_t mark = piece.find('#');
  for (unsigned number = 0;; ++number) {
    std::string next = piece;
    if (mark != std::string::npos) next.replace(mark, 1, std::to_string(number));
    if (frame.size() + next.size() + end.size() >
        valmere::kMaximumMessageBytes + valmere::kFrameHeaderBytes)
      break;
    frame += next;
  }
  frame += end;
  valmere::EndFrame(frame);
  return frame;
}

struct Load {
  std::string_view name;
  std::string frame;
};

std::vector<Load> Loads() {
  return {
      {"gets of a group of 20", LongFrame(R"({"PropertyGetRequests":[)", "1,", "1]}")},
      {"publications", LongFrame(R"({"PropertyGetResponses":[)",
                                 R"({"GUID":"#:#","Status":"Successful"},)", "1]}")},
      {"subscriptions", LongFrame(R"({"PropertySubscribeRequests":[)", R"({"GUID":"#"},)", "1]}")},
      {"values under no known key", LongFrame(R"({"a":[)", "1,", "1]}")},
      {"small gets, 64 KiB queued", ""},
  };
}

std::string SmallFrame(std::string_view text) {
  std::string frame;
  valmere::BeginFrame(frame);
  frame += text;
  valmere::EndFrame(frame);
  return frame;
}

std::string SmallGets() {
  const std::string get = SmallFrame(R"({"PropertyGetRequests":[{"Component":"C","GUID":":0"}]})");
  std::string frames;
  while (frames.size() < 65536)
    frames += get;
  return frames;
}

void Send(std::uint32_t handle, const std::string& bytes) {
  PRN_Write(handle, bytes.data(), static_cast<std::uint32_t>(bytes.size()));
}

// Waits for a reply's first byte: all that was sent before has been handled.
void AwaitReply(std::uint32_t handle) {
  char byte;
  PRN_Read(handle, &byte, 1);
}

void PublishGroup() {
  std::string text = R"({"PropertyGetResponses":[)";
  for (int i = 0; i < 20; ++i)
    text += (i > 0 ? R"(,{"Component":"C","GUID":":)" : R"({"Component":"C","GUID":":)") +
            std::to_string(i) + R"(","Status":"Successful","Value":"a value"})";
  const std::uint32_t owner = PRN_Open(1, 0, 0);
  Send(owner, SmallFrame(text + "]}"));
  Send(owner, SmallFrame(R"({"PropertyGetRequests":[1]})"));
  AwaitReply(owner);
}

std::uintmax_t MarkerBytes(const std::filesystem::path& root) {
  std::error_code none;
  const std::uintmax_t size = std::filesystem::file_size(root / "DriverUnloadSuccessful", none);
  return none ? 0 : size;
}

// The time of one end beyond its grace.
double TimeEnd(const std::string& frame, int clients) {
  PRN_Init(0);
  PublishGroup();
  Send(PRN_Open(1, 0, 0), SmallFrame(R"({"SubscribeAllCurrentAndNewProperties":true})"));
  for (int i = 0; i < clients; ++i) {
    const std::uint32_t handle = PRN_Open(1, 0, 0);
    Send(handle, frame);
    Send(handle, frame);
  }
  // Long enough to be in the middle of some of them, too short for all.
  std::this_thread::sleep_for(std::chrono::milliseconds(30));
  const auto start = Clock::now();
  PRN_Deinit(1);
  return Milliseconds(Clock::now() - start).count() - 3000;
}

void Measure(const Load& load, int clients, const std::filesystem::path& root) {
  const std::string frame = load.frame.empty() ? SmallGets() : load.frame;
  std::vector<double> times;
  const std::uintmax_t before = MarkerBytes(root);
  for (int i = 0; i < kEnds; ++i)
    times.push_back(TimeEnd(frame, clients));
  std::sort(times.begin(), times.end());
  std::printf("%-26s %4d %10.1f %10.1f %8.0f %8.0f %6ju of %d\n", load.name.data(), clients,
              times[kEnds / 2], times.back(), kAim, kLimit, (MarkerBytes(root) - before) / 4,
              kEnds);
  std::fflush(stdout);
}

}  // namespace

int main() {
  const std::filesystem::path root =
      std::filesystem::temp_directory_path() /
      ("unload_bench." + std::to_string(Clock::now().time_since_epoch().count()));
  std::filesystem::create_directories(root / "Store");
  setenv("VALMERE_ROOT", root.c_str(), 1);
  std::printf("%-26s %4s %10s %10s %8s %8s %6s\n", "at work on", "", "median ms", "most ms", "aim",
              "limit", "clean");
  for (const Load& load : Loads())
    for (const int clients : {1, 10, 100})
      Measure(load, clients, root);
  std::filesystem::remove_all(root);
}
