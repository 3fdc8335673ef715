// The thread shares the publisher: where it can't be ended in time, it is left behind with it.
#include "store/engine/publishing_thread.h"

#include "store/engine/change_publisher.h"

namespace valmere {

bool PublishingThread::Start(int priority) {
  thread_.emplace([publisher = publisher_] { publisher->Run(); }, priority);
  return thread_->Start();
}

void PublishingThread::End() {
  publisher_->Stop();
  thread_.reset();
}

}  // namespace valmere
