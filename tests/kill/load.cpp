#include "tests/kill/load.h"

#include <algorithm>

namespace valmere::test {
namespace {

constexpr std::chrono::milliseconds kBetweenSets{1};
// Often enough to tell how far the file is behind, seldom enough to leave the time to others.
constexpr std::chrono::milliseconds kBetweenReads{2};
constexpr std::chrono::milliseconds kBetweenAttempts{1};

client::SetRequest StoreCommand(const Settings& settings) {
  return {{settings.period().component, settings.period().group_guid,
           "DDF2926A-0A65-4196-88FE-5858BC957E0B"},
          TextOf(true)};
}

}  // namespace

Load::Load(const Service& service, const Settings& settings, LoadKind kind, std::uint32_t first)
    : socket_(service.socket()),
      settings_(settings),
      kind_(kind),
      first_(first),
      last_sent_(first - 1),
      setter_([this] {
        Run([this](client::Client& client) { return SendNext(client); }, setter_fault_);
      }),
      reader_([this] {
        Run([this](client::Client& client) { return ReadBack(client); }, reader_fault_);
      }) {}

Load::~Load() {
  if (setter_.joinable()) Join();
}

void Load::Join() {
  joining_.store(true);
  setter_.join();
  reader_.join();
}

// The service may be yet to start.
void Load::Run(const std::function<client::Result<void>(client::Client&)>& step,
               std::string& fault) {
  while (!joining_.load()) {
    auto client = client::Client::Connect(socket_, Patience());
    if (!client) {
      std::this_thread::sleep_for(kBetweenAttempts);
      continue;
    }
    client::Result<void> result;
    while (result)
      result = step(*client);
    if (!end_expected_.load()) fault = result.error().text;
    return;
  }
}

client::Result<void> Load::SendNext(client::Client& client) {
  const std::uint32_t number = last_sent_.load() + 1;
  std::vector<client::SetRequest> message = settings_.Message(number);
  if (kind_ == LoadKind::kFloodOfPeriods) message.erase(message.begin());
  if (kind_ == LoadKind::kStoreProperties) message.push_back(StoreCommand(settings_));
  last_sent_.store(number);
  const auto begun = Clock::now();
  auto result = client.Set(message, Patience());
  if (kind_ == LoadKind::kOneAMillisecond) std::this_thread::sleep_until(begun + kBetweenSets);
  return result;
}

client::Result<void> Load::ReadBack(client::Client& client) {
  const auto answer = client.Get({&settings_.period(), 1}, Patience());
  if (!answer) return answer.error();
  const auto number = NumberIn(answer->front().value);
  const bool is_new = samples_.empty() || samples_.back().number != number;
  if (number && *number >= first_ && is_new) samples_.push_back({Clock::now(), *number, looks_});
  ++looks_;
  std::this_thread::sleep_for(kBetweenReads);
  return {};
}

std::uint32_t Load::ReadBackBy(Clock::time_point time, std::size_t looks_since) const {
  std::uint32_t highest = 0;
  for (const Sample& sample : samples_) {
    if (sample.time <= time && sample.look + looks_since < looks_) highest = sample.number;
  }
  return highest;
}

Clock::time_point Load::ReadBackAbove(std::uint32_t number, Clock::time_point never) const {
  const auto above = std::upper_bound(
      samples_.begin(), samples_.end(), number,
      [](std::uint32_t value, const Sample& sample) { return value < sample.number; });
  return above == samples_.end() ? never : above->time;
}

std::string Load::fault() const {
  return setter_fault_.empty() ? reader_fault_ : setter_fault_;
}

}  // namespace valmere::test
