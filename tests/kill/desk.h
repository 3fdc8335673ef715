// One service with its root, and what is done to it.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

#include "tests/kill/disk_probe.h"
#include "tests/kill/load.h"
#include "tests/kill/service.h"
#include "tests/kill/settings.h"

namespace valmere::test {

// What has been read back for this long is to be there after a kill. A patient desk adds the time
// for which the disk held all up, and asks for a hundred looks since, which take longer where
// the machine has no time for the service either.
inline constexpr std::chrono::seconds kSettled{1};
inline constexpr std::chrono::seconds kRecently{3};
inline constexpr std::size_t kPatientLooks = 100;

// What a kill or a stop did.
struct Outcome {
  bool unclean = false;    // a stop that did not end as a clean one
  bool refused = false;    // the property file was
  bool lost = false;       // a setting has a value from before the one that it has to have
  bool wrong = false;      // a setting has a value that it was not given
  bool leftovers = false;  // an unfinished rewrite is still there after the next start
  std::chrono::milliseconds behind{0};  // the age of the oldest read-back value that was not kept
  std::string text;                     // what there is to say, a line each

  bool Failed() const { return unclean || refused || lost || wrong || leftovers; }
};

// Purpose: runs a service, ends it in one way or another, and holds what the next start comes up
// with against what it has to.
// Owner: a thread of the test.
// Threads: one.
// Errors: std::runtime_error where the service can't be started or asked.
class Desk {
 public:
  // In a folder that is there and is the caller's; the service gets the options.
  Desk(const std::string& folder, const std::vector<std::string>& options, const Settings& settings,
       const DiskProbe& disk, bool patient)
      : service_(folder, options), settings_(settings), disk_(disk), patient_(patient) {}

  // Kills it at that time after a load has begun.
  Outcome KillAmid(LoadKind load, std::chrono::microseconds moment);
  // Has it stop when the last of thirteen sets was read back.
  Outcome StopAfterSets(bool amid_a_flood);
  // Has it stop when it says that it is ready, with an override file to merge at its start.
  Outcome StopAfterOverride(bool amid_a_flood);

 private:
  void StartIfNeeded();
  // With the values that it has in `texts_`.
  void Start();
  std::vector<bool> FlipZones();
  // The number that has to be there, or a later one, after a kill at that time.
  std::uint32_t SettledNumber(const Load& load, Clock::time_point killed) const;
  void WriteFiles(bool zones_on, std::uint32_t period) const;
  // Ends it by a signal; a stop tells in `outcome` whether it was clean.
  void Stop(Outcome& outcome);
  // What a stop has to leave, when `flood` was there if it isn't null.
  Expectation AfterStop(const std::vector<bool>& zones, const Load* flood,
                        Clock::time_point asked) const;
  void Examine(const Expectation& expected, Outcome& outcome);
  void Judge(const Expectation& expected, const std::vector<std::string>& texts,
             Outcome& outcome) const;

  Service service_;
  const Settings& settings_;
  const DiskProbe& disk_;
  const bool patient_;
  bool running_ = false;
  std::vector<std::string> texts_;  // the settings' values at the start
  std::uint32_t next_number_ = 1000;
};

}  // namespace valmere::test
