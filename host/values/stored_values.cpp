// The line writer may be at any point of its work. A value can be in the file because it was there
// before, while a line with another value is being written and a line with this value waits behind
// it. So every value has to be in the file for a while: a writer that has lines left does not pause
// between them.
//
// The file is read again every few milliseconds. Watching the folder would save these reads, a few
// dozen for a stop. But it takes a descriptor that there may not be, it reports other files too,
// and the values have to be asked for in any case.
#include "host/values/stored_values.h"

#include <fcntl.h>

#include <algorithm>
#include <chrono>
#include <exception>
#include <system_error>
#include <thread>
#include <utility>

#include "client/service_properties.h"
#include "host/root/property_file_place.h"
#include "host/system/file_calls.h"
#include "host/system/report.h"
#include "persist/log/log_line.h"
#include "platform/wide_path.h"

namespace valmere::host {
namespace {

using namespace std::chrono_literals;
using client::Deadline;

constexpr auto kBetweenLooks = 5ms;
// For how long every value has to be in the file.
constexpr auto kSettled = 50ms;
constexpr auto kOverridePatience = 5s;
constexpr auto kInitialPatience = 2s;
// What the last read may take after the time is up: it finds what there is to report.
constexpr auto kLastLook = 250ms;
constexpr std::size_t kMostNames = 5;

void Pause(Deadline deadline) {
  std::this_thread::sleep_for(std::min<std::chrono::milliseconds>(kBetweenLooks, deadline.left()));
}

std::string Listed(const std::vector<std::string>& names) {
  std::string text;
  const std::size_t shown = std::min(names.size(), kMostNames);
  for (std::size_t i = 0; i < shown; ++i)
    text += (i == 0 ? "" : ", ") + QuoteForLog(names[i]);
  if (names.size() > shown) text += " and " + std::to_string(names.size() - shown) + " more";
  return text;
}

// As it stands in the line, behind the key.
std::string NameIn(const PropertyLine& line) {
  return line.left_side.substr(line.left_side.find('|') + 1);
}

std::string NameOf(const client::Property& property) {
  return property.group_name + ":" + property.name;
}

const std::string* ValueIn(const PropertyMap& lines, const std::string& key) {
  const auto found = lines.find(key);
  return found == lines.end() ? nullptr : &found->second.value;
}

bool SameText(const std::string* a, const std::string* b) {
  return a == nullptr || b == nullptr ? a == b : *a == *b;
}

// The file first: its name must not be on the disk without its content. Where there is no file
// there is nothing to bring to the disk.
void SyncPropertyFile(const RootFolder& root) try {
  const platform::Descriptor folder = OpenFolder(root.descriptor(), kStoreName);
  Sync(OpenFile(folder.get(), kPropertyFileName, O_RDONLY).get());
  Sync(folder.get());
} catch (const std::system_error& error) {
  if (error.code() != std::errc::no_such_file_or_directory) throw;
}

void ReportUnanswered(const client::Error& error) {
  Report("cannot ask the service for its values: " + error.text);
}

// Without memory or a thread the action fails, which is reported; the start and the end go on.
template <class Action>
void ReportErrors(const char* what, Action action) noexcept {
  try {
    action();
  } catch (const std::exception& error) {
    TryReport([&] { return std::string(what) + ": " + error.what(); });
  }
}

}  // namespace

PropertyMap StoredValues::Lines(const std::string& path) const {
  PropertyMap lines;
  ReadPropertyFile(*files_, platform::WidenPath(path), lines);
  return lines;
}

void StoredValues::PreviewStart() noexcept {
  ReportErrors("cannot look at the property file", [this] {
    first_lines_ = override_.Preview(kFirstPropertyFile, kFirstOverrideFile);
  });
}

void StoredValues::PreviewLoad(const KeptProperties& files) {
  override_.Preview(platform::WidenPath(files.property_file),
                    platform::WidenPath(files.override_file));
}

void StoredValues::WaitForOverride(const std::function<bool()>& give_up) noexcept {
  ReportErrors("cannot bring the override's values to the disk", [&] {
    const Deadline deadline = Deadline::After(kOverridePatience);
    if (override_.Missing({}).empty() || !WaitForOverrideLines(deadline, give_up)) return;
    override_.Clear();
    SyncPropertyFile(root_);
  });
}

bool StoredValues::WaitForOverrideLines(Deadline deadline,
                                        const std::function<bool()>& give_up) const {
  const std::string path = platform::NarrowPath(kFirstPropertyFile);
  while (true) {
    const PropertyMap missing = override_.Missing(Lines(path));
    if (missing.empty()) return true;
    if (give_up()) return false;
    if (deadline.passed()) {
      Names names;
      for (const auto& [key, line] : missing)
        names.push_back(NameIn(line));
      Report("the override's values are not in the property file yet: " + Listed(names));
      return false;
    }
    Pause(deadline);
  }
}

void StoredValues::ReadInitialValues() noexcept {
  ReportErrors("cannot ask the service for its values", [this] {
    auto client = ConnectToService(driver_);
    if (!client) return ReportUnanswered(client.error());
    auto kept = ReadKept(*client, Deadline::After(kInitialPatience));
    if (!kept) return ReportUnanswered(kept.error());
    first_kept_ = std::move(*kept);
    for (const client::Property& property : first_kept_.properties)
      first_values_.emplace(client::LineKey(property), property.value);
  });
}

void StoredValues::WaitUntilStored(Deadline deadline) noexcept {
  // A service that did not answer at the start is not asked for its values now. It brings the file
  // to the disk as well, but has half a second for it at its end, and a busy disk may take longer.
  ReportErrors("cannot tell what is in the property file", [&] {
    const bool stored = first_kept_.properties.empty()
                            ? WaitForOverrideLines(deadline, [] { return false; })
                            : WaitForValues(deadline);
    if (stored) SyncPropertyFile(root_);
  });
}

bool StoredValues::WaitForValues(Deadline deadline) const {
  auto client = ConnectToService(driver_);
  if (!client) {
    ReportUnanswered(client.error());
    return false;
  }
  KeptProperties before;
  Deadline settled = Deadline::Never();
  for (;; Pause(deadline)) {
    const Deadline patience = deadline.left() > kLastLook ? deadline : Deadline::After(kLastLook);
    auto now = ReadAgain(*client, first_kept_, patience);
    if (!now) {
      ReportUnanswered(now.error());
      return false;
    }
    const Names missing = MissingFrom(*now);
    if (!missing.empty() && deadline.passed()) {
      Report("the time is up; not in the property file yet: " + Listed(missing));
      return false;
    }
    if (!missing.empty() || before != *now)
      settled = Deadline::Never();
    else if (settled.never())
      settled = Deadline::After(kSettled).Or(deadline);
    if (settled.passed()) return true;
    before = std::move(*now);
  }
}

// What was set before the file was given another name went to the one of the start, which is also
// where the next start looks.
StoredValues::Names StoredValues::MissingFrom(const KeptProperties& now) const {
  const PropertyMap lines = Lines(first_kept_.property_file);
  PropertyMap other_lines;
  if (now.property_file != first_kept_.property_file) other_lines = Lines(now.property_file);
  PropertyMap override_missing = override_.Missing(other_lines.empty() ? lines : other_lines);
  Names names;
  for (const client::Property& property : now.properties) {
    const std::string key = client::LineKey(property);
    override_missing.erase(key);  // the property has the value that counts
    const std::string* const other = ValueIn(other_lines, key);
    if ((other == nullptr || *other != property.value) && !IsStored(key, property.value, lines))
      names.push_back(NameOf(property));
  }
  for (const auto& [key, line] : override_missing)
    names.push_back(NameIn(line));
  return names;
}

// Either the line has the value, or both are what they were at the start: a property that can't be
// restored, or takes its text in another form, never had its value from the line.
bool StoredValues::IsStored(const std::string& key, const std::string& value,
                            const PropertyMap& lines) const {
  const std::string* const line = ValueIn(lines, key);
  if (line != nullptr && *line == value) return true;
  const auto first = first_values_.find(key);
  return first != first_values_.end() && first->second == value &&
         SameText(line, ValueIn(first_lines_, key));
}

}  // namespace valmere::host
