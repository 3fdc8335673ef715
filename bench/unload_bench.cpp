// What an end of the service takes beyond its grace of 3 s, while clients keep it at work on
// messages of the full length. Prints a line for each kind of message and number of clients: the
// median and the largest of some ends beside the aim and the limit, and how many were clean.
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
#include "protocol/wire/message_frame.h"
#include "tests/driver/busy_messages.h"
#include "tests/support/frames.h"

namespace {

using valmere::test::BusyMessage;
using valmere::test::FrameOf;
using Clock = std::chrono::steady_clock;
using Milliseconds = std::chrono::duration<double, std::milli>;

constexpr int kEnds = 3;
constexpr double kAim = 50;
constexpr double kLimit = 500;

void Send(std::uint32_t handle, const std::string& bytes) {
  PRN_Write(handle, bytes.data(), static_cast<std::uint32_t>(bytes.size()));
}

// Waits for a reply's first byte: all that was sent before has been handled.
void AwaitReply(std::uint32_t handle) {
  char byte;
  PRN_Read(handle, &byte, 1);
}

// Publishes what the clients ask for.
void Publish() {
  const std::uint32_t owner = PRN_Open(1, 0, 0);
  Send(owner, FrameOf(valmere::test::EmptyGroupText(20)));
  Send(owner, FrameOf(valmere::test::ManyPropertiesText()));
  Send(owner, FrameOf(R"({"PropertyGetRequests":[{"GUID":"g:g"}]})"));
  AwaitReply(owner);
}

std::uintmax_t MarkerBytes(const std::filesystem::path& root) {
  std::error_code none;
  const std::uintmax_t size = std::filesystem::file_size(root / "DriverUnloadSuccessful", none);
  return none ? 0 : size;
}

// The time of one end beyond its grace.
double TimeEnd(const BusyMessage& message, int clients) {
  PRN_Init(0);
  Publish();
  Send(PRN_Open(1, 0, 0), FrameOf(R"({"SubscribeAllCurrentAndNewProperties":true})"));
  const std::string frame = FrameOf(message.text);
  for (int i = 0; i < clients; ++i) {
    const std::uint32_t handle = PRN_Open(1, 0, 0);
    for (int time = 0; time < message.times; ++time)
      Send(handle, frame);
  }
  // Long enough to be in the middle of some of them, too short for all.
  std::this_thread::sleep_for(std::chrono::milliseconds(30));
  const auto start = Clock::now();
  PRN_Deinit(1);
  return Milliseconds(Clock::now() - start).count() - 3000;
}

void Measure(const BusyMessage& message, int clients, const std::filesystem::path& root) {
  std::vector<double> times;
  const std::uintmax_t before = MarkerBytes(root);
  for (int i = 0; i < kEnds; ++i)
    times.push_back(TimeEnd(message, clients));
  std::sort(times.begin(), times.end());
  std::printf("%-38s %4d %10.1f %10.1f %8.0f %8.0f %6ju of %d\n", message.name.data(), clients,
              times[kEnds / 2], times.back(), kAim, kLimit, (MarkerBytes(root) - before) / 4,
              kEnds);
  std::fflush(stdout);
}

}  // namespace

// With the words of a kind's name, it measures that kind alone.
int main(int argc, char** argv) {
  const std::filesystem::path root =
      std::filesystem::temp_directory_path() /
      ("unload_bench." + std::to_string(Clock::now().time_since_epoch().count()));
  std::filesystem::create_directories(root / "Store");
  setenv("VALMERE_ROOT", root.c_str(), 1);
  std::printf("%-38s %4s %10s %10s %8s %8s %6s\n", "at work on", "", "median ms", "most ms", "aim",
              "limit", "clean");
  for (const BusyMessage& message :
       valmere::test::MakeBusyMessages(valmere::kMaximumMessageBytes)) {
    if (argc > 1 && message.name != argv[1]) continue;
    for (const int clients : {1, 10, 100})
      Measure(message, clients, root);
  }
  std::filesystem::remove_all(root);
}
