// One connection of a session. Internal to the library.
#pragma once

#include <condition_variable>
#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "client/mutex.h"
#include "client/property.h"
#include "client/timed_mutex.h"
#include "client/transport.h"

namespace valmere::client {

// Purpose: a connection that any number of threads use at once, with a thread that reads it.
// Answers come in the order of the gets, which is how each finds its caller.
// Owner: a session, and each thread that is in a call; never the link's own thread.
// Threads: any; End not from a handler.
// Errors: those of the transport. The constructor throws std::system_error when no thread can be
// started.
class Link {
 public:
  // On the second all messages with properties are notifications, except for those that say that a
  // property was not found.
  enum class Role { kRequests, kChanges };
  // Called on the link's own thread, which holds no lock. They must not block.
  struct Handlers {
    std::function<void(std::vector<Property>)> changes;
    std::function<void(std::vector<SetRequest>)> sets;
    // The connection has ended without Close; the last call.
    std::function<void(const Link& link, const Error& error)> ended;
  };

  Link(std::unique_ptr<Transport> transport, Role role, Handlers handlers);
  ~Link() { End(); }
  Link(const Link&) = delete;
  Link& operator=(const Link&) = delete;

  // Sends one frame. `before` is called when no other frame can come first any more, and decides
  // whether this one goes out.
  Result<void> Send(std::string_view frame, Deadline deadline,
                    const std::function<Result<void>()>& before = nullptr);
  // Sends a frame that gets one answer and waits for it.
  Result<std::vector<Property>> Ask(std::string_view frame, Deadline deadline);

  // Ends the connection; calls that wait return kConnectionLost at once. Does not wait.
  void Close();
  // Close, and waits until the last handler has returned.
  void End();
  // What ended the connection; nothing while it stands.
  std::optional<Error> ended_by() const;

 private:
  // What one caller waits for; under lock_.
  struct Call {
    std::condition_variable done;
    std::optional<Result<std::vector<Property>>> answer;
  };

  Result<void> Expect(const std::shared_ptr<Call>& call);
  void Read(const Handlers& handlers);
  Error ReadToTheEnd(const Handlers& handlers);
  Result<void> ReadOne(const Handlers& handlers, std::string& text);
  bool IsAnswer(const std::vector<Property>& properties) const;
  void Deliver(std::vector<Property> answer);
  // False when it was closed from this side.
  bool Fail(const Error& error);

  const std::unique_ptr<Transport> transport_;
  const Role role_;

  TimedMutex sending_;  // held from the moment that a get is noted until it is out

  mutable Mutex lock_;
  std::deque<std::shared_ptr<Call>> calls_ GUARDED_BY(lock_);  // sent, not answered, oldest first
  std::optional<Error> ended_by_ GUARDED_BY(lock_);
  bool closed_ GUARDED_BY(lock_) = false;

  Mutex joining_;
  std::thread reader_ GUARDED_BY(joining_);  // the last member, it uses the others
};

}  // namespace valmere::client
