// The thread that changes are published on.
#pragma once

#include <memory>
#include <optional>
#include <utility>

#include "driver/sync/worker_thread.h"

namespace valmere {

class ChangePublisher;

// Purpose: the thread that a publisher's passes run on.
// Owner: the property engine.
// Threads: the owner's.
// Errors: Start is false when the system gives no thread.
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
