// What set requests do: the service's own properties are set, the others' owners are asked to.
#include <algorithm>
#include <deque>
#include <stdexcept>
#include <string>
#include <utility>

#include "persist/log/debug_switches.h"
#include "persist/log/log_line.h"
#include "store/engine/property_engine.h"

namespace valmere {
namespace {

// The sets for one owner, in request order, as the frame that it gets.
struct Forward {
  Forward(std::shared_ptr<ClientConnection> to, const std::atomic<bool>& stop)
      : owner(std::move(to)), frame(text, stop) {}

  const std::shared_ptr<ClientConnection> owner;
  std::string text;
  SetFrame frame;
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
    SetFrame& frame = place != forwards_.end()
                          ? place->frame
                          : forwards_.emplace_back(std::move(owner), sender_.ended_flag()).frame;
    const std::size_t before = frame.end();
    frame.set_most(before + left_);
    if (!frame.Append(request)) {
      too_long_ = frame.too_long();
      return false;
    }
    left_ -= frame.end() - before;
    return true;
  }
  bool too_long() const { return too_long_; }

  // An owner that can't be reached any more is about to be withdrawn by its own thread.
  void SendAll() {
    for (Forward& forward : forwards_) {
      if (sender_.ended()) return;
      forward.frame.Finish();
      forward.owner->Write(forward.text.data(), static_cast<int>(forward.text.size()));
    }
  }

 private:
  const ClientConnection& sender_;
  std::deque<Forward> forwards_;
  std::size_t left_ = PropertyEngine::kMostForwardBytes;  // for all of them
  bool too_long_ = false;
};

}  // namespace

// A service that ends does not wait until tens of thousands of sets in one message are done.
bool PropertyEngine::HandleSetRequests(const PropertyMessage& message,
                                       const ClientConnection& sender) {
  Forwards forwards(sender);
  message.ForEachSetRequest([&](const PropertySetRecord& request) {
    if (sender.ended()) return false;
    if (IsOwnComponent(request.component)) {
      SetOwn(request);
    } else if (auto owner = OwnerOf(request)) {
      return forwards.Add(std::move(owner), request);
    } else {
      LogPassedOver(request);
    }
    return true;
  });
  if (forwards.too_long()) return false;
  forwards.SendAll();
  return true;
}

// Empty also for one that is being withdrawn right now. An owner that has gone, of which its own
// thread has not told yet, has its place taken at once by the client that published it last.
std::shared_ptr<ClientConnection> PropertyEngine::OwnerOf(const PropertySetRecord& request) {
  const auto found = components_.Find(request.guid, request.group_guid, request.component);
  auto owner = found ? found->connection() : nullptr;
  if (!owner || !components_.HasHeirs() || CanOwn(*owner)) return owner;
  return components_.TakeOver(found, *owner);
}

void PropertyEngine::LogPassedOver(const PropertySetRecord& request) const {
  LogIn(DebugZone::kWarning, log_, [&] {
    return "A set request names no property: " + QuoteForLog(request.component) + " " +
           QuoteForLog(request.group_guid) + " " + QuoteForLog(request.guid);
  });
}

void PropertyEngine::SetOwn(const PropertySetRecord& request) {
  const auto found = local_.Find(request.group_guid, request.guid);
  if (!found) {
    LogPassedOver(request);
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
  LogIn(DebugZone::kError, log_, [&] {
    return "Property " + QuoteForLog(found->name()) + " was not set to " +
           QuoteForLog(request.value) + ": " + refusal;
  });
}

}  // namespace valmere
