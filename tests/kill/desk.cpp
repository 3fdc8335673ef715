#include "tests/kill/desk.h"

#include <algorithm>
#include <memory>
#include <stdexcept>
#include <thread>

#include "tests/kill/property_file.h"

namespace valmere::test {
namespace {

const client::PropertyAddress kLoadingError = {"955CFDC2-8EA6-478E-A927-7C870022EA03",
                                               "2EBF9DEF-D51C-47FE-935E-5EDCC530B867",
                                               "A32AFFED-7C37-47FE-80DB-B21875E226BD"};

void Note(bool& flag, Outcome& outcome, const std::string& text) {
  flag = true;
  outcome.text += "  " + text + "\n";
}

// A setting and its value, by the names that are meant for people.
std::string Said(const std::string& left_side, const std::string& text) {
  return left_side.substr(left_side.find('|') + 1) + " is " + text;
}

std::string LoadingError(client::Client& client) {
  const auto answer = client.Get({&kLoadingError, 1}, Patience());
  return answer ? answer->front().value : answer.error().text;
}

void AwaitValue(client::Client& client, const client::PropertyAddress& address,
                const std::string& value) {
  const client::Deadline deadline = Patience();
  while (!deadline.passed()) {
    const auto answer = client.Get({&address, 1}, deadline);
    if (!answer) throw std::runtime_error("cannot read back: " + answer.error().text);
    if (answer->front().value == value) return;
  }
  throw std::runtime_error("a set is not read back");
}

}  // namespace

void Desk::Start() {
  service_.Start();
  running_ = true;
  client::Client client = service_.Connect();
  texts_ = settings_.Read(client);
}

void Desk::StartIfNeeded() {
  if (!running_) Start();
}

Outcome Desk::KillAmid(LoadKind kind, std::chrono::microseconds moment) {
  StartIfNeeded();
  Outcome outcome;
  Load load(service_, settings_, kind, next_number_);
  std::this_thread::sleep_for(moment);
  load.ExpectEnd();
  const Clock::time_point killed = Clock::now();
  service_.Kill();
  load.Join();
  if (!load.fault().empty()) Note(outcome.unclean, outcome, "a client ended: " + load.fault());
  const std::uint32_t settled = SettledNumber(load, killed);
  Examine(AfterMessages(texts_, next_number_, settled, load.last_sent()), outcome);
  const Clock::time_point newer = load.ReadBackAbove(NumberIn(texts_.front()).value_or(0), killed);
  outcome.behind = std::chrono::ceil<std::chrono::milliseconds>(killed - std::min(newer, killed));
  next_number_ = load.last_sent() + 1;
  return outcome;
}

std::uint32_t Desk::SettledNumber(const Load& load, Clock::time_point killed) const {
  if (!patient_) return load.ReadBackBy(killed - kSettled);
  return load.ReadBackBy(killed - kSettled - disk_.HeldUpSince(killed - kRecently), kPatientLooks);
}

Outcome Desk::StopAfterSets(bool amid_a_flood) {
  StartIfNeeded();
  Outcome outcome;
  std::unique_ptr<Load> flood;
  if (amid_a_flood)
    flood = std::make_unique<Load>(service_, settings_, LoadKind::kFloodOfPeriods, next_number_);
  const std::vector<bool> zones = FlipZones();
  if (flood) flood->ExpectEnd();
  const Clock::time_point asked = Clock::now();
  Stop(outcome);
  if (flood) flood->Join();
  Examine(AfterStop(zones, flood.get(), asked), outcome);
  if (flood) next_number_ = flood->last_sent() + 1;
  return outcome;
}

Outcome Desk::StopAfterOverride(bool amid_a_flood) {
  StartIfNeeded();
  service_.Kill();
  Outcome outcome;
  const bool on = texts_.back() == TextOf(false);
  const std::uint32_t period = next_number_++;
  WriteFiles(on, period);
  texts_.front() = std::to_string(period);
  std::unique_ptr<Load> flood;
  if (amid_a_flood)
    flood = std::make_unique<Load>(service_, settings_, LoadKind::kFloodOfPeriods, next_number_);
  service_.Start();
  if (flood) flood->ExpectEnd();
  const Clock::time_point asked = Clock::now();
  Stop(outcome);
  if (flood) flood->Join();
  Examine(AfterStop(std::vector<bool>(kZones, on), flood.get(), asked), outcome);
  if (flood) next_number_ = flood->last_sent() + 1;
  return outcome;
}

// Sets each zone to what it is not, and reads it back before the next.
std::vector<bool> Desk::FlipZones() {
  client::Client client = service_.Connect();
  std::vector<bool> zones;
  for (std::size_t zone = 0; zone < kZones; ++zone) {
    zones.push_back(texts_[1 + zone] == TextOf(false));
    const client::SetRequest request = {settings_.zone(zone), TextOf(zones.back())};
    if (const auto sent = client.Set({&request, 1}, Patience()); !sent)
      throw std::runtime_error("cannot set: " + sent.error().text);
    AwaitValue(client, request.address, request.value);
  }
  return zones;
}

// A property file with the opposite of what the override file says.
void Desk::WriteFiles(bool zones_on, std::uint32_t period) const {
  std::vector<std::string> old_lines;
  std::vector<std::string> new_lines;
  for (std::size_t i = 0; i < settings_.left_sides().size(); ++i) {
    const std::string begin = settings_.left_sides()[i] + "=";
    old_lines.push_back(begin + (i == 0 ? "500" : TextOf(!zones_on)));
    new_lines.push_back(begin + (i == 0 ? std::to_string(period) : TextOf(zones_on)));
  }
  WritePropertyFile(service_.property_file(), old_lines);
  WritePropertyFile(service_.override_file(), new_lines);
}

void Desk::Stop(Outcome& outcome) {
  const std::uintmax_t before = service_.CleanEnds();
  service_.AskToStop();
  const int code = service_.AwaitEnd();
  if (code != 0) Note(outcome.unclean, outcome, "it ended with " + std::to_string(code));
  if (service_.CleanEnds() != before + 1)
    Note(outcome.unclean, outcome, "the marker does not tell of a clean end");
}

Expectation Desk::AfterStop(const std::vector<bool>& zones, const Load* flood,
                            Clock::time_point asked) const {
  Expectation expected;
  const std::uint32_t read_back = flood ? flood->ReadBackBy(asked) : 0;
  if (read_back == 0) expected.old_period = NumberIn(texts_.front());
  expected.lowest = std::max(read_back, next_number_);
  expected.highest = flood ? flood->last_sent() : 0;
  for (std::size_t zone = 0; zone < kZones; ++zone) {
    expected.may_be_on[zone] = zones[zone];
    expected.may_be_off[zone] = !zones[zone];
  }
  return expected;
}

// The service runs when it returns. After a failure it does so on a fresh root, so that none is
// counted twice.
void Desk::Examine(const Expectation& expected, Outcome& outcome) {
  const PropertyFile file = ReadPropertyFile(service_.property_file());
  if (!file.fault.empty()) Note(outcome.refused, outcome, "property file: " + file.fault);
  Start();
  client::Client client = service_.Connect();
  if (const std::string error = LoadingError(client); error != TextOf(false))
    Note(outcome.refused, outcome, "\"Property Loading Error\" is " + error);
  if (service_.HasRefusedCopy())
    Note(outcome.refused, outcome, "there is a copy of a refused file");
  if (const std::string path = service_.Leftover(); !path.empty())
    Note(outcome.leftovers, outcome, path + " is left");
  Judge(expected, texts_, outcome);
  for (std::size_t i = 0; file.fault.empty() && i < texts_.size(); ++i) {
    const auto line = file.lines.find(settings_.left_sides()[i]);
    if (line != file.lines.end() && line->second != texts_[i])
      Note(outcome.wrong, outcome, Said(line->first, texts_[i]) + ", in the file " + line->second);
  }
  if (!outcome.Failed()) return;
  service_.Kill();
  running_ = false;
  service_.ForgetRoot();
}

void Desk::Judge(const Expectation& expected, const std::vector<std::string>& texts,
                 Outcome& outcome) const {
  for (std::size_t i = 0; i < texts.size(); ++i) {
    const Finding finding =
        i == 0 ? JudgePeriod(expected, texts[i]) : JudgeZone(expected, i - 1, texts[i]);
    const std::string said = Said(settings_.left_sides()[i], texts[i]);
    if (finding == Finding::kWrong) Note(outcome.wrong, outcome, said);
    if (finding == Finding::kLost)
      Note(
          outcome.lost, outcome,
          said + (i == 0 ? ", at least " + std::to_string(expected.lowest) + " was expected" : ""));
  }
}

}  // namespace valmere::test
