// Kills valmered at random moments, or stops it, again and again, and looks each time whether the
// next start comes up with what was set. Several services are at it side by side, each with a root
// of its own: most of the time is waiting.
#include <linux/magic.h>
#include <sys/prctl.h>
#include <sys/vfs.h>
#include <sys/wait.h>

#include <atomic>
#include <charconv>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <filesystem>
#include <random>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "tests/kill/desk.h"
#include "tests/kill/disk_probe.h"
#include "tests/kill/table.h"

namespace valmere::test {
namespace {

namespace fs = std::filesystem;

constexpr std::chrono::microseconds kLatestKill{2'000'000};
constexpr char kUsage[] =
    "usage: kill_test [--stops] [--patient] [--seed SEED] [--jobs JOBS] [--folder DIR] [RUNS]\n"
    "Kills valmered RUNS (20) times under each of three loads or, with --stops, stops it as often "
    "in\n"
    "each of four ways, JOBS (4) services side by side. The same seed gives the same moments.\n"
    "--patient gives a busy machine more than a second for what has to be there after a kill, and\n"
    "more than its usual time to a stop.\n";

struct Options {
  bool stops = false;
  bool patient = false;
  std::uint32_t runs = 20;
  std::uint32_t jobs = 4;
  std::uint32_t seed = std::random_device()();
  std::string folder;
};

// One kill or stop; the moment is that of the kill.
using Act = Outcome (*)(Desk&, std::chrono::microseconds moment);

template <LoadKind kind>
Outcome Kill(Desk& desk, std::chrono::microseconds moment) {
  return desk.KillAmid(kind, moment);
}

template <bool amid_a_flood>
Outcome StopAfterSets(Desk& desk, std::chrono::microseconds) {
  return desk.StopAfterSets(amid_a_flood);
}

template <bool amid_a_flood>
Outcome StopAfterOverride(Desk& desk, std::chrono::microseconds) {
  return desk.StopAfterOverride(amid_a_flood);
}

struct Way {
  const char* name;
  Act act;
};

const std::vector<Way> kKills = {
    {"kill amid a flood of sets", Kill<LoadKind::kFlood>},
    {"kill amid a set each millisecond", Kill<LoadKind::kOneAMillisecond>},
    {"kill amid \"Store Properties\"", Kill<LoadKind::kStoreProperties>},
};
const std::vector<Way> kStops = {
    {"stop after 13 sets", StopAfterSets<false>},
    {"stop after an override", StopAfterOverride<false>},
    {"stop after 13 sets, amid a flood", StopAfterSets<true>},
    {"stop after an override, amid a flood", StopAfterOverride<true>},
};

bool IsInMemory(const std::string& folder) {
  struct statfs status {};
  return statfs(folder.c_str(), &status) == 0 && status.f_type == TMPFS_MAGIC;
}

// A disk, where there is a choice.
std::string TemporaryFolder() {
  const std::string usual = fs::temp_directory_path().string();
  return IsInMemory(usual) && fs::is_directory("/var/tmp") ? "/var/tmp" : usual;
}

// False when the text is no number.
bool ReadNumber(const std::string& text, std::uint32_t& number) {
  const char* const end = text.data() + text.size();
  const auto [rest, error] = std::from_chars(text.data(), end, number);
  return error == std::errc() && rest == end && !text.empty();
}

bool ReadOptions(const std::vector<std::string>& arguments, Options& options) {
  for (std::size_t i = 0; i < arguments.size(); ++i) {
    const std::string& argument = arguments[i];
    if (argument == "--stops") {
      options.stops = true;
      continue;
    }
    if (argument == "--patient") {
      options.patient = true;
      continue;
    }
    if (!argument.starts_with("--")) {
      if (!ReadNumber(argument, options.runs)) return false;
      continue;
    }
    if (++i == arguments.size()) return false;
    if (argument == "--folder") {
      options.folder = arguments[i];
    } else if (argument != "--seed" && argument != "--jobs") {
      return false;
    } else if (!ReadNumber(arguments[i], argument == "--seed" ? options.seed : options.jobs)) {
      return false;
    }
  }
  if (options.folder.empty()) options.folder = TemporaryFolder();
  return options.jobs > 0;
}

// Purpose: a folder for all that is made, removed with it.
// Owner: the run.
class Workshop {
 public:
  explicit Workshop(const std::string& parent) : path_(parent + "/valmere-kill-XXXXXX") {
    if (mkdtemp(path_.data()) == nullptr) throw std::runtime_error(parent + ": no folder there");
  }
  ~Workshop() { fs::remove_all(path_); }
  Workshop(const Workshop&) = delete;
  Workshop& operator=(const Workshop&) = delete;

  std::string Folder(const std::string& name) const {
    const std::string folder = path_ + "/" + name;
    fs::create_directory(folder);
    return folder;
  }

 private:
  std::string path_;
};

Settings LearnSettings(const Workshop& workshop) {
  Service service(workshop.Folder("first"));
  service.Start();
  client::Client client = service.Connect();
  return Settings(client);
}

// A disk that is held up must not cut a stop short.
std::vector<std::string> ServiceOptions(const Options& options) {
  if (!options.stops || !options.patient) return {};
  return {"--drain-timeout", "60"};
}

struct Job {
  std::size_t way;
  std::chrono::microseconds moment;
};

// The ways in turns, so that all loads are at work side by side.
std::vector<Job> MakeJobs(const Options& options, std::size_t ways) {
  std::mt19937 random(options.seed);
  std::uniform_int_distribution<std::int64_t> moments(0, kLatestKill.count());
  std::vector<Job> jobs;
  for (std::uint32_t run = 0; run < options.runs; ++run) {
    for (std::size_t way = 0; way < ways; ++way)
      jobs.push_back({way, std::chrono::microseconds(moments(random))});
  }
  return jobs;
}

Outcome Tried(const Way& way, Desk& desk, std::chrono::microseconds moment) {
  try {
    return way.act(desk, moment);
  } catch (const std::exception& error) {
    Outcome outcome;
    outcome.unclean = true;
    outcome.text = std::string("  ") + error.what() + "\n";
    return outcome;
  }
}

// No process may be left; orphans of ours became our children.
bool HasStrays() {
  return waitpid(-1, nullptr, WNOHANG) >= 0;
}

int Run(const Options& options) {
  const std::vector<Way>& ways = options.stops ? kStops : kKills;
  std::vector<std::string> names;
  for (const Way& way : ways)
    names.emplace_back(way.name);
  Table table(names);
  const Workshop workshop(options.folder);
  const Settings settings = LearnSettings(workshop);
  const DiskProbe disk(workshop.Folder("probe"));
  const std::vector<Job> jobs = MakeJobs(options, ways.size());
  std::atomic<std::size_t> next{0};
  std::vector<std::thread> workers;
  for (std::uint32_t i = 0; i < options.jobs; ++i)
    workers.emplace_back([&, folder = workshop.Folder(std::to_string(i))] {
      Desk desk(folder, ServiceOptions(options), settings, disk, options.patient);
      for (std::size_t job = next++; job < jobs.size(); job = next++)
        table.Add(jobs[job].way, Tried(ways[jobs[job].way], desk, jobs[job].moment));
    });
  for (std::thread& worker : workers)
    worker.join();
  table.Print();
  std::printf(
      "replacing a bare file took at most %lld ms meanwhile\n",
      static_cast<long long>(std::chrono::ceil<std::chrono::milliseconds>(disk.Longest()).count()));
  if (HasStrays()) std::printf("a process is left behind\n");
  return table.Failed() || HasStrays() ? 1 : 0;
}

}  // namespace
}  // namespace valmere::test

int main(int argc, char** argv) {
  valmere::test::Options options;
  if (!valmere::test::ReadOptions({argv + 1, argv + argc}, options)) {
    std::fputs(valmere::test::kUsage, stderr);
    return 2;
  }
  std::signal(SIGPIPE, SIG_IGN);
  prctl(PR_SET_CHILD_SUBREAPER, 1);
  std::printf("kill_test: seed %u, in %s%s\n", options.seed, options.folder.c_str(),
              valmere::test::IsInMemory(options.folder) ? ", which is in memory" : "");
  std::fflush(stdout);
  try {
    return valmere::test::Run(options);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "kill_test: %s\n", error.what());
    return 1;
  }
}
