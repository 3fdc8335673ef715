// Tells subscribers what has changed, once per publishing period.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>

#include "driver/sync/event_flags.h"
#include "driver/sync/lock.h"
#include "driver/sync/worker_thread.h"
#include "persist/log/log_sink.h"
#include "store/engine/announcements.h"
#include "store/engine/change_stack.h"
#include "store/engine/subscriber_list.h"
#include "store/engine/update_entries.h"
#include "store/property/handle_list.h"
#include "store/property/uint_property.h"

namespace valmere {

// Purpose: collects changes as they happen, renders them at every pass, and at the end of each
// period hands every subscriber those that it asked for.
// Owner: shared by the property engine and the publishing thread, which may outlive the engine: it
// owns all that a pass touches.
// Threads: any thread reports changes; passes run on the publishing thread, or on a test's.
// Errors: changes beyond the stacks' 499 are dropped. An entry that there is no memory for is lost;
// one for which a period has no room is, too, and the log is told so once a period.
class ChangePublisher {
 public:
  static constexpr std::uint32_t kPassMilliseconds = 250;

  // `period` is in milliseconds and read at the end of each period. `on_subscribe_all` is called,
  // with no lock of this held but its own, when a subscriber's last key has gone: it now subscribes
  // to everything.
  ChangePublisher(std::shared_ptr<Property> own_component, std::shared_ptr<UIntProperty> period,
                  std::shared_ptr<SubscriberList> subscribers, std::weak_ptr<LogSink> log,
                  std::function<void()> on_subscribe_all);
  ChangePublisher(const ChangePublisher&) = delete;
  ChangePublisher& operator=(const ChangePublisher&) = delete;

  // Passes every 250 ms, until it is stopped.
  void Run();
  // From here on nothing is published, and a pass at work leaves off. Any number of times.
  void Stop();
  // Goes up with Stop.
  const std::atomic<bool>& stopped() const { return stopped_; }
  // Forgets `on_subscribe_all`; it does not run any more when this returns.
  void Disconnect() EXCLUDES(callback_lock_);

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
  bool IsStopped() const { return stopped_.load(std::memory_order_relaxed); }
  void CollectAll();
  void Collect(ChangeStack& changes);
  void AppendNew(const std::shared_ptr<Property>& property);
  void AppendOvertaken() REQUIRES(subscribers_->lock);
  void Append(const Property& property, std::string_view status);
  // True when there was room for it.
  bool Render(const Property& property, std::string_view value, std::string_view status);
  void LogLosses();
  void ForgetWithdrawn();
  void EndPeriod();
  // True when a subscriber lost its last key.
  bool Deliver() EXCLUDES(subscribers_->lock);
  // Both are called with the list's lock held.
  bool DeliverTo(Subscriber& subscriber);
  // What the subscriber is to get, or null.
  const std::string* FrameFor(Subscriber& subscriber);
  void TellOfSubscriptionToAll() EXCLUDES(callback_lock_);
  std::uint32_t TicksOfPeriod() const { return period_->GetValue() / kPassMilliseconds; }

  const std::shared_ptr<Property> own_component_;
  const std::shared_ptr<UIntProperty> period_;
  const std::shared_ptr<SubscriberList> subscribers_;
  const std::weak_ptr<LogSink> log_;

  Lock callback_lock_;  // outside of all that a subscription to all takes
  std::function<void()> on_subscribe_all_ GUARDED_BY(callback_lock_);

  ChangeStack changes_;
  ChangeStack component_changes_;
  Announcements announcements_;
  HandleList periodic_;

  std::atomic<bool> stopped_{false};
  EventFlags stop_{EventFlags::AutoClear::kNo};

  // The publishing thread's own.
  std::uint32_t ticks_left_;
  UpdateEntries entries_{stopped_};
  // What was announced in this period while nobody listened to its changes, and with what value.
  std::unordered_map<std::shared_ptr<Property>, std::string> unheard_;
  std::string frame_;     // the last one that was picked for a subscriber
  bool lost_ = false;     // something that this period should have told of
  bool told_so_ = false;  // and the log knows
};

// Purpose: the thread that a publisher's passes run on.
// Owner: the property engine.
// Threads: the owner's.
// Errors: Start is false when there is no thread to be had.
class PublishingThread {
 public:
  explicit PublishingThread(std::shared_ptr<ChangePublisher> publisher)
      : publisher_(std::move(publisher)) {}
  ~PublishingThread() { End(); }
  PublishingThread(const PublishingThread&) = delete;
  PublishingThread& operator=(const PublishingThread&) = delete;

  bool Start(int priority);
  // Stops the publisher and waits for its thread. Any number of times.
  void End();

 private:
  const std::shared_ptr<ChangePublisher> publisher_;
  std::optional<WorkerThread> thread_;
};

}  // namespace valmere
