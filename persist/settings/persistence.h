// The service's own properties and the files that keep their values.
#pragma once

#include <atomic>
#include <deque>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "driver/sync/lock.h"
#include "persist/file/line_queue.h"
#include "persist/file/override_merge.h"
#include "persist/file/property_file.h"
#include "persist/log/early_log.h"
#include "persist/log/log_sink.h"
#include "platform/files.h"
#include "store/property/bool_property.h"
#include "store/property/property.h"
#include "store/property/string_property.h"
#include "store/property/trigger_property.h"

namespace valmere {

// Where registered properties are published: the property engine.
class PropertySink {
 public:
  virtual ~PropertySink() = default;
  // Takes one of the service's own properties; false when there is one of that key.
  virtual bool AddProperty(std::shared_ptr<Property> property) = 0;
};

// Purpose: restores registered properties from the property file and writes their changes to it;
// merges the override file, once.
// Owner: shared by the service and the components that register. The service ends it.
// Threads: any. A change queues its line and never waits for a file; a load reads on its caller's
// thread, and waits for the one line that is being written, also by another service.
// Errors: a load that fails sets "Property Loading Error" and is logged with its cause. A line for
// which there is no memory is lost, which is logged.
class Persistence : public std::enable_shared_from_this<Persistence> {
 public:
  // Loads the files.
  static std::shared_ptr<Persistence> Make(std::shared_ptr<platform::FileSystem> files,
                                           platform::WidePathView main_path,
                                           platform::WidePathView override_path);
  Persistence(const Persistence&) = delete;
  Persistence& operator=(const Persistence&) = delete;

  // Keeps the property's value from here on: it takes the value that was loaded for it, if it is of
  // the kind that is restored, and is published.
  void RegisterProperty(const std::shared_ptr<Property>& property) EXCLUDES(load_lock_);
  // Publishes what has been registered so far, in that order, and everything to come.
  void AttachEngine(const std::shared_ptr<PropertySink>& engine) EXCLUDES(publish_lock_);
  // What has happened so far is logged at once.
  void AttachLog(const std::shared_ptr<LogSink>& log) { log_->Attach(log); }
  // Starts the line writer, and the second line writer, which tries lines again that could not be
  // written and syncs what was written; false when the system gives no threads.
  bool StartWorkers(int priority, int second_priority) {
    return lines_.Start(priority, second_priority);
  }
  // From here on loads fail, also those that wait for the property files, so that they delay no
  // other thread. Lines are still written. On any thread; may be called again.
  void EndLoads();
  // As EndLoads; also begins no more lines: those that are still queued are discarded, which is
  // logged, and so are those of later changes.
  void StopWriting();
  // As StopWriting; also ends the line writers. On the thread that started them; may be called
  // again.
  void End();

  // Reads the files again and gives their values to the registered properties, which announce them
  // and so are stored again. False when it fails, and once loads are ended; std::bad_alloc.
  bool Load() EXCLUDES(load_lock_);
  // Queues a line for every registered property, in the order of registration.
  void StoreAll() EXCLUDES(store_lock_);

 private:
  Persistence(std::shared_ptr<platform::FileSystem> files, platform::WidePathView main_path,
              platform::WidePathView override_path);

  void PublishOwn();
  void Publish(const std::shared_ptr<Property>& property) EXCLUDES(publish_lock_);
  void LoadOnCommand() EXCLUDES(load_lock_);
  // Nothing when loads were ended meanwhile.
  std::optional<LoadOutcome> LoadFiles() REQUIRES(load_lock_);
  void LogLoad(const LoadOutcome& outcome, platform::WidePathView main_path,
               platform::WidePathView override_path);
  // The text that was loaded for the property, or null.
  const std::string* LoadedValue(const Property& property) const REQUIRES(load_lock_);
  void RestoreSilently(Property& property) REQUIRES(load_lock_);
  void RestoreAnnounced(Property& property, const std::string& text);
  void LogUnfit(const Property& property, std::string_view text);
  void StoreOne(const Property& property) EXCLUDES(store_lock_);
  void QueueLine(const Property& property) noexcept REQUIRES(store_lock_);

  const std::shared_ptr<platform::FileSystem> files_;
  const std::shared_ptr<StringProperty> main_path_;
  const std::shared_ptr<StringProperty> override_path_;
  const std::shared_ptr<BoolProperty> loading_error_;
  const std::shared_ptr<TriggerProperty> load_command_;
  const std::shared_ptr<TriggerProperty> store_command_;

  Lock load_lock_;  // held around every load
  PropertyMap loaded_ GUARDED_BY(load_lock_);

  Lock store_lock_;  // held while lines are built and queued
  std::deque<std::shared_ptr<Property>> registered_ GUARDED_BY(store_lock_);

  Lock publish_lock_;
  std::weak_ptr<PropertySink> engine_ GUARDED_BY(publish_lock_);
  bool attached_ GUARDED_BY(publish_lock_) = false;
  std::vector<std::shared_ptr<Property>> pending_ GUARDED_BY(publish_lock_);

  const std::shared_ptr<EarlyLog> log_ = std::make_shared<EarlyLog>();
  std::atomic<bool> loads_ended_{false};
  LineQueue lines_;
};

}  // namespace valmere
