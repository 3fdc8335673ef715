// The component between properties and their file. A property's line is "group GUID:GUID|group
// name:name=value": the first two identify it, the names are for people.
#include "persist/settings/persistence.h"

#include <exception>
#include <utility>

#include "persist/file/property_file_lease.h"
#include "persist/log/debug_switches.h"
#include "persist/log/log_line.h"
#include "persist/settings/line_log.h"
#include "store/property/general_group.h"

namespace valmere {
namespace {

constexpr std::string_view kErrorGroup = "Error";
constexpr std::string_view kErrorGroupGuid = "2EBF9DEF-D51C-47FE-935E-5EDCC530B867";

std::string LeftSide(const Property& property) {
  std::string side = property.key().Text();
  side.append(1, '|');
  side.append(property.group_name()).append(1, ':').append(property.name());
  return side;
}

std::string QuotePath(platform::WidePathView path) {
  return QuoteForLog(platform::NarrowPath(path));
}

// Whether the file's lines, or those of them that are well formed, were taken.
bool TookLines(const LoadOutcome& outcome) {
  return outcome.Succeeded() || outcome.main_file == PropertyFileResult::kMalformedLine;
}

template <class P>
std::shared_ptr<P> WithAttribute(std::shared_ptr<P> property, std::uint32_t attribute) {
  property->set_attribute(attribute);
  return property;
}

std::shared_ptr<StringProperty> MakePath(platform::WidePathView path, std::string_view guid,
                                         std::string_view name) {
  return WithAttribute(StringProperty::Make(platform::NarrowPath(path), guid, name,
                                            kGeneralGroupGuid, kGeneralGroup),
                       Property::kSettable);
}

std::shared_ptr<TriggerProperty> MakeCommand(std::string_view guid, std::string_view name) {
  return WithAttribute(TriggerProperty::Make(false, guid, name, kGeneralGroupGuid, kGeneralGroup),
                       Property::kSettable);
}

}  // namespace

Persistence::Persistence(std::shared_ptr<platform::FileSystem> files,
                         platform::WidePathView main_path, platform::WidePathView override_path)
    : files_(std::move(files)),
      main_path_(
          MakePath(main_path, "CD31503F-4949-40E1-BA2C-B2A88CF420F0", "Name of Property File")),
      override_path_(MakePath(override_path, "C8B8886D-A101-47A9-BC60-477938C53648",
                              "Name of Property Override File")),
      loading_error_(
          WithAttribute(BoolProperty::Make(false, "A32AFFED-7C37-47FE-80DB-B21875E226BD",
                                           "Property Loading Error", kErrorGroupGuid, kErrorGroup),
                        0)),
      load_command_(MakeCommand("0D9B0F83-2282-4728-A78E-FE2FF4E3A13C", "Load Properties")),
      store_command_(MakeCommand("DDF2926A-0A65-4196-88FE-5858BC957E0B", "Store Properties")),
      lines_(files_, std::make_shared<LineLog>(log_), main_path) {}

std::shared_ptr<Persistence> Persistence::Make(std::shared_ptr<platform::FileSystem> files,
                                               platform::WidePathView main_path,
                                               platform::WidePathView override_path) {
  std::shared_ptr<Persistence> made(new Persistence(std::move(files), main_path, override_path));
  made->Load();
  made->PublishOwn();
  return made;
}

void Persistence::PublishOwn() {
  const std::weak_ptr<Persistence> self = weak_from_this();
  load_command_->AddListener([self](const std::shared_ptr<Property>&) {
    if (const auto persistence = self.lock()) persistence->LoadOnCommand();
  });
  store_command_->AddListener([self](const std::shared_ptr<Property>&) {
    if (const auto persistence = self.lock()) persistence->StoreAll();
  });
  Publish(main_path_);
  Publish(override_path_);
  Publish(loading_error_);
  Publish(load_command_);
  Publish(store_command_);
}

void Persistence::RegisterProperty(const std::shared_ptr<Property>& property) {
  {
    // A load meanwhile finds the property registered, or not yet restored.
    const ScopedLock hold(load_lock_);
    RestoreSilently(*property);
    const ScopedLock hold_store(store_lock_);
    registered_.push_back(property);
  }
  property->AddListener([self = weak_from_this()](const std::shared_ptr<Property>& changed) {
    if (const auto persistence = self.lock()) persistence->StoreOne(*changed);
  });
  Publish(property);
}

void Persistence::Publish(const std::shared_ptr<Property>& property) {
  std::shared_ptr<PropertySink> engine;
  {
    const ScopedLock hold(publish_lock_);
    if (!attached_) {
      pending_.push_back(property);
      return;
    }
    engine = engine_.lock();
  }
  if (engine) engine->AddProperty(property);
}

void Persistence::AttachEngine(const std::shared_ptr<PropertySink>& engine) {
  std::vector<std::shared_ptr<Property>> pending;
  {
    const ScopedLock hold(publish_lock_);
    engine_ = engine;
    attached_ = true;
    pending.swap(pending_);
  }
  for (const auto& property : pending)
    engine->AddProperty(property);
}

void Persistence::EndLoads() {
  loads_ended_.store(true);
  PropertyFileLease::WakeAll();
}

void Persistence::StopWriting() {
  EndLoads();
  lines_.Stop();
}

void Persistence::End() {
  EndLoads();
  lines_.End();
}

bool Persistence::Load() {
  const ScopedLock hold(load_lock_);
  // The next service may use the files by now.
  if (loads_ended_.load()) return false;
  const std::optional<LoadOutcome> outcome = LoadFiles();
  if (!outcome) return false;
  std::deque<std::shared_ptr<Property>> registered;
  // A file that was refused must not undo changes since it was last read.
  if (TookLines(*outcome)) {
    const ScopedLock hold_store(store_lock_);
    registered = registered_;
  }
  for (const auto& property : registered)
    if (const std::string* text = LoadedValue(*property)) RestoreAnnounced(*property, *text);
  loading_error_->SetValue(!outcome->Succeeded());
  return outcome->Succeeded();
}

// A client that asked for it by a message sees a lack of memory as any other failure.
void Persistence::LoadOnCommand() {
  try {
    Load();
  } catch (const std::exception&) {
    loading_error_->SetValue(true);
    LogIn(DebugZone::kError, log_,
          [] { return std::string("No property file was loaded: out of memory"); });
  }
}

// A file that is refused whole leaves what was loaded before. Any other replaces it entirely, so
// that a line that was removed from the file is forgotten.
std::optional<LoadOutcome> Persistence::LoadFiles() {
  const platform::WidePath main_path = platform::WidenPath(main_path_->ToString());
  const platform::WidePath override_path = platform::WidenPath(override_path_->ToString());
  PropertyMap map;
  LoadOutcome outcome;
  {
    const PropertyFileLease lease(PropertyFileLease::For::kReading,
                                  [this] { return loads_ended_.load(); });
    if (!lease.granted()) return std::nullopt;
    // After a file call that took too long, the override file may be one for the next load.
    const auto in_time = [&] { return lease.Lasts() && !loads_ended_.load(); };
    const auto request_write = [&](const PropertyLine& line) {
      return in_time() && lines_.Push(MakeWriteRequest(line.left_side, line.value, main_path));
    };
    outcome = LoadPropertyFiles(*files_, main_path, override_path, map, request_write, in_time);
  }
  if (TookLines(outcome)) loaded_ = std::move(map);
  LogLoad(outcome, main_path, override_path);
  return outcome;
}

void Persistence::LogLoad(const LoadOutcome& outcome, platform::WidePathView main_path,
                          platform::WidePathView override_path) {
  if (!outcome.Succeeded()) {
    LogIn(DebugZone::kError, log_, [&] {
      return "Property file " + QuotePath(main_path) +
             " was not loaded: " + std::string(Describe(outcome.main_file));
    });
  }
  if (outcome.override_file && *outcome.override_file != PropertyFileResult::kRead) {
    LogIn(DebugZone::kWarning, log_, [&] {
      return "Override file " + QuotePath(override_path) +
             " was not applied: " + std::string(Describe(*outcome.override_file));
    });
  }
  if (!outcome.override_removed) {
    LogIn(DebugZone::kWarning, log_, [&] {
      return "Override file " + QuotePath(override_path) + " was applied but can't be removed";
    });
  }
}

const std::string* Persistence::LoadedValue(const Property& property) const {
  if ((property.attribute() & Property::kRestored) == 0) return nullptr;
  const auto line = loaded_.find(property.key().Text());
  return line != loaded_.end() ? &line->second.value : nullptr;
}

void Persistence::RestoreSilently(Property& property) {
  const std::string* text = LoadedValue(property);
  if (text == nullptr) return;
  try {
    property.SetFromStringSilently(*text);
  } catch (const std::exception&) {
    LogUnfit(property, *text);
  }
}

void Persistence::RestoreAnnounced(Property& property, const std::string& text) {
  try {
    property.SetFromString(text);
  } catch (const std::exception&) {
    LogUnfit(property, text);
  }
}

void Persistence::LogUnfit(const Property& property, std::string_view text) {
  LogIn(DebugZone::kWarning, log_, [&] {
    return "Property " + QuoteForLog(property.name()) + " can't take the value " +
           QuoteForLog(text) + " of the property file";
  });
}

// The value is read under the lock: of two changes at once the line queued last has the last value.
void Persistence::StoreOne(const Property& property) {
  const ScopedLock hold(store_lock_);
  QueueLine(property);
}

void Persistence::StoreAll() {
  const ScopedLock hold(store_lock_);
  for (const auto& property : registered_)
    QueueLine(*property);
}

// A line ends at its first line feed, so a value that has one can't be stored. Whether the line is
// queued or not, the change has happened, and the other lines and listeners must not miss it.
void Persistence::QueueLine(const Property& property) noexcept {
  try {
    const std::string value = property.GetValueString();
    if (value.find('\n') != std::string::npos) {
      LogIn(DebugZone::kError, log_, [&] {
        return "Property " + QuoteForLog(property.name()) + " can't be stored: its value is " +
               QuoteForLog(value);
      });
      return;
    }
    lines_.PushChange(
        MakeWriteRequest(LeftSide(property), value, platform::WidenPath(main_path_->ToString())));
  } catch (const std::exception&) {
    LogIn(DebugZone::kError, log_, [&] {
      return "Property " + QuoteForLog(property.name()) + " was not stored: out of memory";
    });
  }
}

}  // namespace valmere
