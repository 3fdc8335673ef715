// A client for many threads, with callbacks and connections that come back.
#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "client/connector.h"
#include "client/deadline.h"
#include "client/property.h"
#include "client/result.h"

namespace valmere::client {

class SessionCore;
struct SubscriptionEntry;

// The connection to the service is lost. From now on calls fail with kConnectionLost.
struct Lost {
  Error error;
};
// It is back: everything that was subscribed to is subscribed to, everything that was published is
// published, and calls work. Changes that happened meanwhile were missed, so here is all there is.
struct Reconnected {
  std::vector<Property> properties;
};
using SessionEvent = std::variant<Lost, Reconnected>;

struct SessionOptions {
  // Of a call that is given no deadline.
  std::chrono::milliseconds timeout{5000};
  // Of one attempt to connect, except for the first. To end a session takes no longer than this.
  std::chrono::milliseconds connect_timeout{1000};
  bool reconnect = true;
  // Between a loss, or an attempt that failed, and the next attempt: doubled each time.
  std::chrono::milliseconds first_pause{100};
  std::chrono::milliseconds longest_pause{5000};
  // Called for every loss and every return, one after the other; for the first loss perhaps before
  // Open returns.
  std::function<void(const SessionEvent&)> on_event;
};

// Purpose: keeps a subscription; ends it when it goes.
// Owner: the subscriber. It may outlive its session.
// Threads: any, one at a time.
class Subscription {
 public:
  Subscription() = default;
  ~Subscription() { End(); }
  Subscription(Subscription&& other) noexcept = default;
  Subscription& operator=(Subscription&& other) noexcept;

  // When it returns, the callback is not running and will not run any more; called from a callback
  // it does not wait for that callback. A program that holds a lock which its callback takes must
  // not end the subscription under it.
  void End();

 private:
  friend class Session;
  Subscription(std::weak_ptr<SessionCore> core, std::shared_ptr<SubscriptionEntry> entry)
      : core_(std::move(core)), entry_(std::move(entry)) {}

  std::weak_ptr<SessionCore> core_;
  std::shared_ptr<SubscriptionEntry> entry_;
};

// Purpose: reads, sets, subscribes to and publishes properties. It has one connection for what it
// asks and publishes, and opens a second one for its subscriptions.
// Owner: the caller; not destroyed or assigned to while a call runs, nor in a callback.
// Threads: every call on any thread, callbacks included. Callbacks run on one thread of the
// session, one at a time and while no lock is held; they must not throw.
// Errors: values whose text names the call and what failed. kConnectionLost comes at once, also for
// calls that wait, until Reconnected is reported; kInvalid for a request that is longer than the
// service takes, of which nothing is sent. Open may also throw std::bad_alloc.
class Session {
 public:
  using OptionalDeadline = std::optional<Deadline>;  // without: after the option's time-out
  using ChangeCallback = std::function<void(std::span<const Property>)>;
  using SetCallback = std::function<void(const SetRequest&)>;

  // Connects for the first time.
  static Result<Session> Open(Connector connector, SessionOptions options = {},
                              OptionalDeadline deadline = {});
  Session(Session&& other) noexcept;
  Session& operator=(Session&& other) noexcept;
  // Ends the session without a goodbye; what was sent is still handled.
  ~Session();

  Result<std::vector<Property>> GetAll(OptionalDeadline deadline = {});
  // A property that is not there has the status kNotFound.
  Result<Property> Get(const PropertyAddress& address, OptionalDeadline deadline = {});
  // One answer for each address, in order.
  Result<std::vector<Property>> Get(std::span<const PropertyAddress> addresses,
                                    OptionalDeadline deadline = {});
  // Every property of a group, of all owners; one answer of status kNotFound when there is none.
  Result<std::vector<Property>> GetGroup(std::string_view group_guid,
                                         OptionalDeadline deadline = {});

  // Sent, not answered: the owner decides what becomes of it.
  Result<void> Set(std::span<const SetRequest> requests, OptionalDeadline deadline = {});
  Result<void> Set(const SetRequest& request, OptionalDeadline deadline = {}) {
    return Set({&request, 1}, deadline);
  }

  // Calls `callback` for the properties at the addresses that change, come or go, or for all there
  // are and all to come. One that has gone has the status kNoLongerAvailable; the value that it
  // comes back with may be reported twice. Returns when the service has noted it; the callback may
  // run before. Values that stand already are not reported.
  // The service knows no end of a subscription: what was subscribed to still comes in, and is
  // dropped, until the last subscription has ended, which closes their connection.
  Result<Subscription> Subscribe(std::span<const PropertyAddress> addresses,
                                 ChangeCallback callback, OptionalDeadline deadline = {});
  Result<Subscription> SubscribeAll(ChangeCallback callback, OptionalDeadline deadline = {});

  // Makes properties known, until they are withdrawn or the session ends, and calls `callback` for
  // sets that are meant for them; it takes a new value by Update. A property that is published
  // already takes the new value and callback.
  //
  // This and the next two are remembered also when they give kConnectionLost: they are sent when
  // the connection is back. After kTimeout they may be.
  Result<void> Publish(std::span<const Property> properties, SetCallback callback = nullptr,
                       OptionalDeadline deadline = {});
  // Reports new values of published properties. kInvalid when one of them is not published.
  Result<void> Update(std::span<const SetRequest> values, OptionalDeadline deadline = {});
  Result<void> Update(const SetRequest& value, OptionalDeadline deadline = {}) {
    return Update({&value, 1}, deadline);
  }
  // Takes published properties back. kInvalid when one of them is not published.
  Result<void> Withdraw(std::span<const PropertyAddress> addresses, OptionalDeadline deadline = {});

  // Says goodbye after everything sent before, and ends the session. When it returns, no callback
  // runs any more, except for one that it is called from. Further calls give kConnectionLost.
  Result<void> Disconnect(OptionalDeadline deadline = {});

 private:
  explicit Session(std::shared_ptr<SessionCore> core) : core_(std::move(core)) {}

  std::shared_ptr<SessionCore> core_;
};

}  // namespace valmere::client
