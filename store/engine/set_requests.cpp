// Sets are handled in request order; what is passed on is collected, and sent when all are handled.
#include "store/engine/set_requests.h"

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <deque>
#include <stdexcept>
#include <string>
#include <utility>

#include "net/client_connection.h"
#include "persist/log/debug_switches.h"
#include "persist/log/log_line.h"
#include "persist/log/log_sink.h"
#include "protocol/message/property_message.h"
#include "protocol/wire/entry_frame.h"
#include "store/engine/property_catalog.h"

namespace valmere {
namespace {

// How long one owner without room is waited for before the others, and the sender, are looked at
// again.
constexpr platform::Ticks kTicksAtOnce = 20 * platform::kTicksPerMillisecond;

// The sets for one owner, in request order, as the frame that it gets.
struct Forward {
  Forward(std::shared_ptr<ClientConnection> to, const std::atomic<bool>& stop)
      : owner(std::move(to)), text(std::make_shared<std::string>()), frame(*text, stop) {}

  const std::shared_ptr<ClientConnection> owner;
  const std::shared_ptr<std::string> text;
  SetFrame frame;
  std::size_t sets = 0;
  bool done = false;
};

// The sets that one message passes on. Owners come in the order in which they are first mentioned;
// they are few.
class Forwards {
 public:
  explicit Forwards(const ClientConnection& sender) : sender_(sender) {}

  // False when they would be too much, or are not wanted any more.
  bool Add(std::shared_ptr<ClientConnection> owner, const PropertySetRecord& request) {
    auto place = std::find_if(forwards_.begin(), forwards_.end(),
                              [&](const Forward& entry) { return entry.owner == owner; });
    Forward& forward = place != forwards_.end()
                           ? *place
                           : forwards_.emplace_back(std::move(owner), sender_.ended_flag());
    SetFrame& frame = forward.frame;
    const std::size_t before = frame.end();
    frame.set_most(before + left_);
    if (!frame.Append(request)) {
      too_long_ = frame.too_long();
      return false;
    }
    left_ -= frame.end() - before;
    ++forward.sets;
    return true;
  }
  bool too_long() const { return too_long_; }

  // Owners that have room get theirs first. For the others the sender waits, for so long in all;
  // then their sets are dropped.
  void SendAll(std::uint32_t most_milliseconds, const std::shared_ptr<LogSink>& log) {
    for (Forward& forward : forwards_)
      forward.frame.Finish();
    const Forward* waiting = SendToThoseWithRoom();
    if (waiting == nullptr) return;
    const platform::Ticks deadline =
        platform::MonotonicNow() + most_milliseconds * platform::kTicksPerMillisecond;
    for (; waiting != nullptr; waiting = SendToThoseWithRoom()) {
      const platform::Ticks now = platform::MonotonicNow();
      if (now >= deadline) break;
      waiting->owner->AwaitRoom(std::min(deadline, now + kTicksAtOnce));
    }
    if (waiting != nullptr && !sender_.ended()) LogDropped(log);
  }

 private:
  // The first owner that has no room; null when there is none, or the sender has ended. The thread
  // that serves an owner that can't be reached any more is about to withdraw its properties.
  const Forward* SendToThoseWithRoom() {
    const Forward* waiting = nullptr;
    for (Forward& forward : forwards_) {
      if (sender_.ended()) return nullptr;
      if (forward.done) continue;
      EventFlags::PendingWake wake;
      forward.done = forward.owner->WriteForOther(forward.text, wake) != Connection::kNoRoom;
      if (!forward.done && waiting == nullptr) waiting = &forward;
    }
    return waiting;
  }

  void LogDropped(const std::shared_ptr<LogSink>& log) const {
    for (const Forward& forward : forwards_) {
      if (forward.done) continue;
      LogIn(DebugZone::kWarning, log, [&] {
        return "Client " + std::to_string(forward.owner->instance_number()) +
               " reads nothing: " + std::to_string(forward.sets) + " sets for it are dropped";
      });
    }
  }

  const ClientConnection& sender_;
  std::deque<Forward> forwards_;
  std::size_t left_ = kMostForwardBytes;  // for all of them
  bool too_long_ = false;
};

void LogPassedOver(const std::shared_ptr<LogSink>& log, const PropertySetRecord& request) {
  LogIn(DebugZone::kWarning, log, [&] {
    return "A set request names no property: " + QuoteForLog(request.component) + " " +
           QuoteForLog(request.group_guid) + " " + QuoteForLog(request.guid);
  });
}

PropertyAddress AddressOf(const PropertySetRecord& request) {
  return {request.component, request.group_guid, request.guid};
}

void SetOwn(const PropertyCatalog& catalog, const PropertySetRecord& request,
            const std::shared_ptr<LogSink>& log) {
  const auto found = catalog.FindOwn(AddressOf(request));
  if (!found) {
    LogPassedOver(log, request);
    return;
  }
  std::string refusal = "it can't be set";
  try {
    if ((found->attribute() & Property::kSettable) != 0) {
      found->SetFromString(std::string(request.value));
      return;
    }
  } catch (const std::logic_error& error) {
    // A text that is no number, or one out of range: the value stays, and so does the session.
    refusal = error.what();
  }
  LogIn(DebugZone::kError, log, [&] {
    return "Property " + QuoteForLog(found->name()) + " was not set to " +
           QuoteForLog(request.value) + ": " + refusal;
  });
}

}  // namespace

// A service that ends does not wait until tens of thousands of sets in one message are done.
bool HandleSetRequests(PropertyCatalog& catalog, const PropertyMessage& message,
                       const ClientConnection& sender, const std::shared_ptr<LogSink>& log,
                       std::uint32_t most_milliseconds) {
  Forwards forwards(sender);
  message.ForEachSetRequest([&](const PropertySetRecord& request) {
    if (sender.ended()) return false;
    if (catalog.IsOwnComponent(request.component))
      SetOwn(catalog, request, log);
    else if (auto owner = catalog.OwnerOf(AddressOf(request)))
      return forwards.Add(std::move(owner), request);
    else
      LogPassedOver(log, request);
    return true;
  });
  if (forwards.too_long()) return false;
  forwards.SendAll(most_milliseconds, log);
  return true;
}

}  // namespace valmere
