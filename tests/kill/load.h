// What clients do to a service while it is killed or stopped.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "client/client.h"
#include "tests/kill/service.h"
#include "tests/kill/settings.h"

namespace valmere::test {

using Clock = std::chrono::steady_clock;

enum class LoadKind {
  kFlood,            // messages as fast as they can be sent
  kOneAMillisecond,  // one each millisecond
  kStoreProperties,  // the command "Store Properties" behind each
  kFloodOfPeriods,   // as kFlood, and the zones are left to others
};

// Purpose: a client that sends numbered messages, and one that reads the period back all the time.
// Owner: a thread of the test.
// Threads: its own two; all calls by its owner. What was read back can be asked for after Join.
// Errors: fault() tells of a client that ended before the service was to.
class Load {
 public:
  // Sends the messages `first` and onwards.
  Load(const Service& service, const Settings& settings, LoadKind kind, std::uint32_t first);
  ~Load();
  Load(const Load&) = delete;
  Load& operator=(const Load&) = delete;

  // From here on the service may end at any time.
  void ExpectEnd() { end_expected_.store(true); }
  // Waits for both clients, which the end of the service ends.
  void Join();

  // Numbers that may have reached the service: up to and with this one.
  std::uint32_t last_sent() const { return last_sent_.load(); }
  // The highest that was read back by then, with so many looks after it; 0 for none.
  std::uint32_t ReadBackBy(Clock::time_point time, std::size_t looks_since = 0) const;
  // When a number above `number` was read back for the first time; `never` if it was not.
  Clock::time_point ReadBackAbove(std::uint32_t number, Clock::time_point never) const;
  std::string fault() const;

 private:
  struct Sample {
    Clock::time_point time;
    std::uint32_t number;
    std::size_t look;  // that saw it first
  };

  // Connects and goes on with `step` until the service has ended.
  void Run(const std::function<client::Result<void>(client::Client&)>& step, std::string& fault);
  client::Result<void> SendNext(client::Client& client);
  client::Result<void> ReadBack(client::Client& client);

  const std::string socket_;
  const Settings& settings_;
  const LoadKind kind_;
  const std::uint32_t first_;
  std::atomic<std::uint32_t> last_sent_;
  std::atomic<bool> end_expected_{false};
  std::atomic<bool> joining_{false};
  std::vector<Sample> samples_;  // the reader's until Join, in ascending order
  std::size_t looks_ = 0;        // the reader's until Join
  std::string setter_fault_;     // the setter's until Join
  std::string reader_fault_;     // the reader's until Join
  std::thread setter_;
  std::thread reader_;
};

}  // namespace valmere::test
