#include "tests/kill/disk_probe.h"

#include <algorithm>
#include <filesystem>
#include <fstream>

namespace valmere::test {
namespace {

constexpr std::chrono::milliseconds kBetween{5};
constexpr std::chrono::milliseconds kLong{20};
constexpr std::size_t kBytes = 1500;

}  // namespace

DiskProbe::DiskProbe(const std::string& folder)
    : file_(folder + "/probe"), beside_(folder + "/probe.new"), thread_([this] { Run(); }) {}

DiskProbe::~DiskProbe() {
  stopped_.store(true);
  thread_.join();
}

void DiskProbe::Run() {
  while (!stopped_.load()) {
    const Clock::time_point begun = Clock::now();
    {
      const std::lock_guard hold(lock_);
      begun_ = begun;
    }
    Replace();
    const Clock::time_point ended = Clock::now();
    {
      const std::lock_guard hold(lock_);
      begun_.reset();
      if (ended - begun > kLong) delays_.push_back({begun, ended});
    }
    std::this_thread::sleep_for(kBetween);
  }
}

void DiskProbe::Replace() const {
  std::ofstream(beside_) << std::string(kBytes, 'x');
  std::filesystem::rename(beside_, file_);
}

DiskProbe::Clock::duration DiskProbe::HeldUpSince(Clock::time_point from) const {
  const std::lock_guard hold(lock_);
  Clock::duration sum{};
  if (begun_) sum = Clock::now() - std::max(*begun_, from);
  for (auto delay = delays_.rbegin(); delay != delays_.rend() && delay->ended > from; ++delay)
    sum += delay->ended - std::max(delay->begun, from);
  return sum;
}

DiskProbe::Clock::duration DiskProbe::Longest() const {
  const std::lock_guard hold(lock_);
  Clock::duration longest{};
  for (const Delay& delay : delays_)
    longest = std::max(longest, delay.ended - delay.begun);
  return longest;
}

}  // namespace valmere::test
