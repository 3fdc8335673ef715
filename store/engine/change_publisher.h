// Publishes to subscribers what has changed, once per publishing period.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>

#include "driver/sync/event_flags.h"
#include "net/shared_frame.h"
#include "persist/log/log_sink.h"
#include "store/engine/change_stack.h"
#include "store/engine/subscriber_list.h"
#include "store/engine/update_entries.h"
#include "store/property/uint_property.h"

namespace valmere {

class Observation;
class ReplyMemory;
struct PendingUpdates;

// Purpose: takes the pending updates and renders them at every pass, and at the end of each period
// hands every subscriber those that it asked for.
// Owner: shared by the property engine and the publishing thread, which may outlive the engine: it
// owns all that a pass touches.
// Threads: Stop from any; passes run on the publishing thread, or on a test's.
// Errors: an entry that there is no memory for is lost; one for which a period has no room is, too,
// and logged once a period.
class ChangePublisher {
 public:
  static constexpr std::uint32_t kPassMilliseconds = 250;

  // `period` is in milliseconds and read at the end of each period. A subscriber whose last key has
  // gone subscribes to everything from then on: `observation` observes all then. `reply_memory`
  // is told of each pass.
  ChangePublisher(std::shared_ptr<Property> own_component, std::shared_ptr<UIntProperty> period,
                  std::shared_ptr<SubscriberList> subscribers,
                  std::shared_ptr<PendingUpdates> pending,
                  std::shared_ptr<ReplyMemory> reply_memory, std::weak_ptr<Observation> observation,
                  std::weak_ptr<LogSink> log);
  ChangePublisher(const ChangePublisher&) = delete;
  ChangePublisher& operator=(const ChangePublisher&) = delete;

  // Passes every 250 ms, until it is stopped.
  void Run();
  // From here on nothing is published, and a pass at work leaves off. Any number of times.
  void Stop();

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
  SharedFrame FrameFor(Subscriber& subscriber);
  std::uint32_t TicksOfPeriod() const { return period_->GetValue() / kPassMilliseconds; }

  const std::shared_ptr<Property> own_component_;
  const std::shared_ptr<UIntProperty> period_;
  const std::shared_ptr<SubscriberList> subscribers_;
  const std::shared_ptr<PendingUpdates> pending_;
  const std::shared_ptr<ReplyMemory> reply_memory_;
  const std::weak_ptr<Observation> observation_;  // held only while all properties are observed
  const std::weak_ptr<LogSink> log_;

  std::atomic<bool> stopped_{false};
  EventFlags stop_{EventFlags::AutoClear::kNo};

  // The publishing thread's own.
  std::uint32_t ticks_left_;
  UpdateEntries entries_{stopped_};
  // The properties that were announced in this period before they had a listener, and their values
  // then.
  std::unordered_map<std::shared_ptr<Property>, std::string> announced_unobserved_;
  bool lost_ = false;  // an entry of this period was dropped
  bool loss_logged_ = false;
};

}  // namespace valmere
