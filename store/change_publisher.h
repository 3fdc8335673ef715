// Tells subscribers what has changed, once per publishing period.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>

#include "driver/sync/event_flags.h"
#include "driver/sync/worker_thread.h"
#include "store/announcements.h"
#include "store/change_stack.h"
#include "store/handle_list.h"
#include "store/subscriber_list.h"
#include "store/uint_property.h"
#include "store/update_entries.h"

namespace valmere {

// Purpose: collects changes as they happen, renders them at every pass, and at the end of each
// period hands every subscriber those that it asked for.
// Owner: the property engine; the subscriber list outlives it.
// Threads: any thread reports changes; passes run on its own thread, or on a test's.
// Errors: changes beyond the stacks' 499 are dropped. An entry that there is no memory for is lost.
class ChangePublisher {
 public:
  static constexpr std::uint32_t kPassMilliseconds = 250;

  // `period` is in milliseconds and read at the end of each period. `on_subscribe_all` is called,
  // with no lock held, when a subscriber's last key has gone: it now subscribes to everything.
  ChangePublisher(std::shared_ptr<Property> own_component, std::shared_ptr<UIntProperty> period,
                  SubscriberList& subscribers, std::function<void()> on_subscribe_all);
  // Stops the passes.
  ~ChangePublisher();
  ChangePublisher(const ChangePublisher&) = delete;
  ChangePublisher& operator=(const ChangePublisher&) = delete;

  // Passes every 250 ms from here on; false when there is no thread to be had.
  bool Start(int priority);

  // Each is false when the change was dropped. The second is for properties of components.
  bool PushChange(const std::shared_ptr<Property>& property) { return changes_.Push(property); }
  bool PushComponentChange(const std::shared_ptr<Property>& property) {
    return component_changes_.Push(property);
  }
  bool HasChanges() const { return changes_.HasChanges(); }
  // A property that has come: announced with its value in the next pass.
  void AnnounceNew(std::shared_ptr<Property> property) {
    announcements_.AddNew(std::move(property));
  }
  // A property that has gone: announced once as no longer available.
  void AnnounceVanished(std::shared_ptr<Property> property) {
    announcements_.AddVanished(std::move(property));
  }
  // A property that announces no changes: published at the end of every period, until it goes.
  void PublishPeriodically(std::shared_ptr<Property> property) {
    periodic_.Add(std::move(property));
  }
  void PublishNoLonger(const std::shared_ptr<Property>& property) { periodic_.Remove(property); }

  // One pass: takes what has been reported, and ends the period when its time has come.
  void Pass();

 private:
  void Run();
  void CollectAll();
  void Collect(ChangeStack& changes);
  void AppendNew(const std::shared_ptr<Property>& property);
  void AppendOvertaken() REQUIRES(subscribers_.lock);
  void Append(const Property& property, std::string_view status);
  void EndPeriod();
  // True when a subscriber lost its last key.
  bool Deliver() EXCLUDES(subscribers_.lock);
  // Both are called with the list's lock held.
  bool DeliverTo(Subscriber& subscriber);
  // What the subscriber is to get, or null.
  const std::string* FrameFor(Subscriber& subscriber);
  std::uint32_t TicksOfPeriod() const { return period_->GetValue() / kPassMilliseconds; }

  const std::shared_ptr<Property> own_component_;
  const std::shared_ptr<UIntProperty> period_;
  SubscriberList& subscribers_;
  const std::function<void()> on_subscribe_all_;

  ChangeStack changes_;
  ChangeStack component_changes_;
  Announcements announcements_;
  HandleList periodic_;

  // The publishing thread's own.
  std::uint32_t ticks_left_;
  UpdateEntries entries_;
  // What was announced in this period while nobody listened to its changes, and with what value.
  std::unordered_map<std::shared_ptr<Property>, std::string> unheard_;
  std::string frame_;  // the last one that was picked for a subscriber

  EventFlags stop_{EventFlags::AutoClear::kNo};
  std::optional<WorkerThread> thread_;  // the last member: it ends before what it uses goes
};

}  // namespace valmere
