// The publishing thread. Changes are collected every 250 ms, so that the stacks stay short, and
// delivered at the end of a period, so that clients are woken once for many of them.
#include "store/engine/change_publisher.h"

#include <cstddef>
#include <exception>
#include <utility>

#include "persist/log/debug_switches.h"
#include "store/engine/announcements.h"
#include "store/engine/property_record.h"
#include "store/property/component_property.h"

namespace valmere {
namespace {

constexpr std::uint32_t kStop = 1;
constexpr std::size_t kKeptFrameBytes = std::size_t{64} * 1024;

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
                                 std::weak_ptr<Observation> observation, std::weak_ptr<LogSink> log)
    : own_component_(std::move(own_component)),
      period_(std::move(period)),
      subscribers_(std::move(subscribers)),
      pending_(std::move(pending)),
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
      // No memory to make the subscriptions to all complete: properties that were there before a
      // subscriber's last key went may stay unheard of.
    }
  }
}

void ChangePublisher::Pass() {
  if (IsStopped()) return;
  CollectAll();
  LogLosses();
  // Decremented before it is tested: a period below one pass wraps here and never ends in practice.
  if (--ticks_left_ == 0) EndPeriod();
}

// What nobody would get is let go without being rendered.
void ChangePublisher::Append(const Property& property, std::string_view status) {
  if (IsStopped() || !subscribers_->Any()) return;
  try {
    Render(property, property.GetValueString(), status);
  } catch (const std::exception&) {
    // No memory for this one: the others, and the period's end, must not be lost with it.
  }
}

bool ChangePublisher::Render(const Property& property, std::string_view value,
                             std::string_view status) {
  const bool rendered = entries_.Append(RecordOf(property, value, status, *own_component_));
  if (!rendered) lost_ = true;
  return rendered;
}

// Never more than a full stack: threads that change properties as fast as they are taken must not
// keep the pass from ending.
void ChangePublisher::Collect(ChangeStack& changes) {
  for (std::uint32_t taken = 0; taken < ChangeStack::kSlots && !IsStopped(); ++taken) {
    const auto changed = changes.Pop();
    if (!changed) return;
    Append(*changed, kStatusSuccessful);
    unheard_.erase(changed);  // somebody listens to it now, and has heard of this
  }
}

// What has gone is taken down before the changes and told of after them: a change that was made
// before the going must not be told of in the pass after it, as if the property were there.
void ChangePublisher::CollectAll() {
  Announcements::Taken taken;
  try {
    taken = pending_->announcements.Take(stopped_);
  } catch (const std::exception&) {
    // They wait for a pass with more memory.
  }
  Collect(pending_->changes);
  Collect(pending_->component_changes);
  for (const auto& property : taken.added)
    AppendNew(property);
  for (const auto& property : taken.vanished) {
    Append(*property, kStatusNoLongerAvailable);
    unheard_.erase(property);
  }
  if (taken.lost_vanished != 0) ForgetWithdrawn();
  if (taken.lost_added + taken.lost_vanished != 0 && subscribers_->Any()) lost_ = true;
}

// The value is read once: what is told and what is remembered must be the same.
void ChangePublisher::AppendNew(const std::shared_ptr<Property>& property) {
  if (IsStopped() || !subscribers_->Any()) return;
  try {
    const bool unheard = !property->observed();
    std::string value = property->GetValueString();
    if (Render(*property, value, kStatusSuccessful) && unheard)
      unheard_.insert_or_assign(property, std::move(value));
  } catch (const std::exception&) {
    // No memory for this one, or to see later that it has changed.
  }
}

// A property that nobody listened to when it was announced may have changed before somebody
// subscribed to it. What he reads then is the new value, so the old one must not be the last that he
// is told. Answers go out under the subscriber list's lock: none can come in between.
void ChangePublisher::AppendOvertaken() {
  for (const auto& [property, announced] : unheard_) {
    if (IsStopped()) return;
    try {
      if (property->observed() && property->GetValueString() != announced)
        Append(*property, kStatusSuccessful);
    } catch (const std::exception&) {
      // No memory to look at this one.
    }
  }
}

// Properties of whose going no announcement came.
void ChangePublisher::ForgetWithdrawn() {
  std::erase_if(unheard_, [](const auto& entry) { return IsWithdrawn(*entry.first); });
}

void ChangePublisher::LogLosses() {
  if (!lost_ || told_so_ || IsStopped()) return;
  told_so_ = true;
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
  lost_ = told_so_ = false;
  entries_.Clear();
  unheard_.clear();
  if (frame_.capacity() > kKeptFrameBytes) std::string().swap(frame_);
  ticks_left_ = TicksOfPeriod();
  if (!subscribed_all) return;
  if (const auto observation = observation_.lock()) observation->ObserveAll(stopped_);
}

bool ChangePublisher::Deliver() {
  bool subscribed_all = false;
  SubscriberList::Entries dropped;  // let go after the lock
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

// False when the subscriber's connection has ended or took less than the frame. Nothing is made for
// one that has ended: those who serve such streams may be waiting for the list.
bool ChangePublisher::DeliverTo(Subscriber& subscriber) {
  if (!subscriber.connection->IsOpen()) return false;
  try {
    const std::string* const frame = FrameFor(subscriber);
    if (frame == nullptr) return true;
    const ScopedLock hold(subscriber.write_lock);
    const int length = static_cast<int>(frame->size());
    return subscriber.connection->Write(frame->data(), length) == length;
  } catch (const std::exception&) {
    return true;  // no memory for its text: it goes without this period's, the others do not
  }
}

const std::string* ChangePublisher::FrameFor(Subscriber& subscriber) {
  if (subscriber.keys.empty()) return &entries_.WholeFrame();
  const auto is_unwanted = [&] { return IsStopped() || !subscriber.connection->IsOpen(); };
  return entries_.FrameFor(subscriber.keys, frame_, is_unwanted) ? &frame_ : nullptr;
}

}  // namespace valmere
