// The publishing thread. Changes are collected every 250 ms, so that the stacks stay short, and
// delivered at the end of a period, so that clients are woken once for many of them.
//
// What always holds:
// (1) The pending updates have locks of their own; all else that a pass changes belongs to the
//     thread that passes, and other threads change nothing of the publisher but stopped_ and stop_.
// (2) A pass takes at most kSlots changes from each stack, so that it ends however fast they come
//     (Collect).
// (3) Of what has come and gone, a pass publishes only what was announced before it took the first
//     change, and publishes it behind the changes: own, components', come, gone (CollectAll).
// (4) An entry is rendered once for all subscribers, and only while there is a subscriber (Append,
//     AppendNew).
// (5) entries_ holds the entries of the running period, in the order in which they were rendered; a
//     period's end clears it, whether they were delivered or not (EndPeriod).
// (6) announced_unobserved_ holds a property from its announcement until a change of it is taken,
//     it goes or the period ends; so it keeps none alive for longer.
// (7) The tick count is decremented before it is tested, and set anew only when the thread starts
//     and at a period's end: a new period is used from the next one on (Pass, EndPeriod).
// (8) A client is written to under the subscriber list's lock and its own write lock, in this
//     order; values are read without them, but for AppendOvertaken, and properties are observed
//     after them.
// (9) An entry, a subscriber's frame or a period's delivery for which there is no memory is lost by
//     itself: the period ends all the same, and the next one begins (EndPeriod).
// (10) Once stopped_ is up, a pass renders no further entry, writes to no further subscriber and
//      observes no further property; each loop looks at it.
#include "store/engine/change_publisher.h"

#include <cstddef>
#include <exception>
#include <utility>

#include "persist/log/debug_switches.h"
#include "store/engine/announcements.h"
#include "store/engine/observation.h"
#include "store/engine/pending_updates.h"
#include "store/engine/property_record.h"
#include "store/engine/reply_memory.h"
#include "store/property/component_property.h"

namespace valmere {
namespace {

constexpr std::uint32_t kStop = 1;

// A published property without a connection has been taken out of the registry.
bool IsWithdrawn(const Property& property) {
  return property.OfComponent() &&
         static_cast<const ComponentProperty&>(property).connection() == nullptr;
}

}  // namespace

ChangePublisher::ChangePublisher(std::shared_ptr<Property> own_component,
                                 std::shared_ptr<UIntProperty> period,
                                 std::shared_ptr<SubscriberList> subscribers,
                                 std::shared_ptr<PendingUpdates> pending,
                                 std::shared_ptr<ReplyMemory> reply_memory,
                                 std::weak_ptr<Observation> observation, std::weak_ptr<LogSink> log)
    : own_component_(std::move(own_component)),
      period_(std::move(period)),
      subscribers_(std::move(subscribers)),
      pending_(std::move(pending)),
      reply_memory_(std::move(reply_memory)),
      observation_(std::move(observation)),
      log_(std::move(log)),
      ticks_left_(TicksOfPeriod()) {}

void ChangePublisher::Stop() {
  stopped_.store(true);
  stop_.Set(kStop);
}

void ChangePublisher::Run() {
  ticks_left_ = TicksOfPeriod();
  while (stop_.WaitFor(kStop, kPassMilliseconds) == 0) {
    try {
      Pass();
    } catch (const std::exception&) {
      // No memory to observe all properties: changes of some may not reach a subscriber whose last
      // key has gone.
    }
  }
}

void ChangePublisher::Pass() {
  if (IsStopped()) return;
  reply_memory_->Pass();
  CollectAll();
  LogLosses();
  // Decremented before it is tested: a period below one pass wraps here and never ends in practice.
  if (--ticks_left_ == 0) EndPeriod();
}

// An entry that no subscriber would get is dropped before it is rendered.
void ChangePublisher::Append(const Property& property, std::string_view status) {
  if (IsStopped() || !subscribers_->Any()) return;
  try {
    Render(property, property.GetValueString(), status);
  } catch (const std::exception&) {
    // No memory for this entry: the others, and the period's end, must not be lost with it.
  }
}

bool ChangePublisher::Render(const Property& property, std::string_view value,
                             std::string_view status) {
  const bool rendered = entries_.Append(RecordOf(property, value, status, *own_component_));
  if (!rendered) lost_ = true;
  return rendered;
}

// Never more than a full stack: threads that change properties as fast as they are taken must not
// make the pass endless.
void ChangePublisher::Collect(ChangeStack& changes) {
  for (std::uint32_t taken = 0; taken < ChangeStack::kSlots && !IsStopped(); ++taken) {
    const auto changed = changes.Pop();
    if (!changed) return;
    Append(*changed, kStatusSuccessful);
    announced_unobserved_.erase(changed);  // it is observed now, and this value is published
  }
}

// Withdrawals are taken before the changes and published after them: a change that was made before
// a withdrawal must not be published in the pass after it, as if the property still existed.
void ChangePublisher::CollectAll() {
  Announcements::Taken taken;
  try {
    taken = pending_->announcements.Take(stopped_);
  } catch (const std::exception&) {
    // They stay queued for a pass with more memory.
  }
  Collect(pending_->changes);
  Collect(pending_->component_changes);
  for (const auto& property : taken.added)
    AppendNew(property);
  for (const auto& property : taken.vanished) {
    Append(*property, kStatusNoLongerAvailable);
    announced_unobserved_.erase(property);
  }
  if (taken.lost_vanished != 0) ForgetWithdrawn();
  if (taken.lost_added + taken.lost_vanished != 0 && subscribers_->Any()) lost_ = true;
}

// The value is read once: the one that is published and the one that is remembered must be the
// same.
void ChangePublisher::AppendNew(const std::shared_ptr<Property>& property) {
  if (IsStopped() || !subscribers_->Any()) return;
  try {
    const bool unobserved = !property->observed();
    std::string value = property->GetValueString();
    if (Render(*property, value, kStatusSuccessful) && unobserved)
      announced_unobserved_.insert_or_assign(property, std::move(value));
  } catch (const std::exception&) {
    // No memory for this one, or to see later that it has changed.
  }
}

// A property that had no listener when it was announced may have changed before a client subscribed
// to it. The client reads the new value then, so the old one must not be the last that is published
// to it. A reply has the client's write lock from under the subscriber list's, and the property was
// observed before: none with another value can come in between.
void ChangePublisher::AppendOvertaken() {
  for (const auto& [property, announced] : announced_unobserved_) {
    if (IsStopped()) return;
    try {
      if (property->observed() && property->GetValueString() != announced)
        Append(*property, kStatusSuccessful);
    } catch (const std::exception&) {
      // No memory to compare this one.
    }
  }
}

// Withdrawn properties whose announcement was dropped.
void ChangePublisher::ForgetWithdrawn() {
  std::erase_if(announced_unobserved_, [](const auto& entry) { return IsWithdrawn(*entry.first); });
}

void ChangePublisher::LogLosses() {
  if (!lost_ || loss_logged_ || IsStopped()) return;
  loss_logged_ = true;
  LogIn(DebugZone::kWarning, log_.lock(), [] {
    return std::string("More happens in a publishing period than subscribers can be told of");
  });
}

void ChangePublisher::EndPeriod() {
  bool subscribed_all = false;
  try {
    for (const auto& property : pending_->periodic.Copy())
      Append(*property, kStatusSuccessful);
    subscribed_all = !entries_.empty() && Deliver();
  } catch (const std::exception&) {
    // No memory: this period's entries are lost, the next period is not.
  }
  LogLosses();
  lost_ = loss_logged_ = false;
  entries_.Clear();
  announced_unobserved_.clear();
  ticks_left_ = TicksOfPeriod();
  if (!subscribed_all) return;
  if (const auto observation = observation_.lock()) observation->ObserveAll(stopped_);
}

bool ChangePublisher::Deliver() {
  bool subscribed_all = false;
  SubscriberList::Entries dropped;  // released after the lock
  const ScopedLock hold(subscribers_->lock);
  AppendOvertaken();
  dropped = subscribers_->KeepIf([&](Subscriber& subscriber) {
    if (IsStopped()) return true;
    const bool had_keys = !subscriber.keys.empty();
    if (!DeliverTo(subscriber)) return false;
    if (had_keys && subscriber.keys.empty()) subscribed_all = true;
    return true;
  });
  return subscribed_all;
}

// False when the subscriber's connection has ended or took less than the frame. No frame is made
// for one that has ended: the threads that serve such streams may be waiting for the list.
bool ChangePublisher::DeliverTo(Subscriber& subscriber) {
  if (!subscriber.connection->IsOpen()) return false;
  try {
    const SharedFrame frame = FrameFor(subscriber);
    if (!frame) return true;
    EventFlags::PendingWake wake;
    const ScopedLock hold(subscriber.write_lock);
    return subscriber.connection->WriteShared(frame, wake) == static_cast<int>(frame->size());
  } catch (const std::exception&) {
    return true;  // no memory for its frame: this subscriber alone misses the period
  }
}

SharedFrame ChangePublisher::FrameFor(Subscriber& subscriber) {
  if (subscriber.keys.empty()) return entries_.WholeFrame();
  const auto is_unwanted = [&] { return IsStopped() || !subscriber.connection->IsOpen(); };
  Subscriber::Keys gone;
  SharedFrame frame = entries_.FrameFor(subscriber.keys, gone, is_unwanted);
  Subscriber::ReleaseKeys(*subscriber.connection, gone);
  return frame;
}

}  // namespace valmere
