// One thread that sleeps in Accept. Close raises a flag before it touches the listener. When an
// accept yields nothing, the flag says why: with the flag up the loop ends, without it the accept
// has failed and is tried again.
#include "net/acceptor.h"

#include <exception>
#include <utility>

#include "driver/sync/event_flags.h"

namespace valmere {
namespace {

constexpr std::uint32_t kClosing = 1;

// After a failed accept. The causes with the listener still open pass by themselves: a peer that
// gave up before it was accepted, or a process that is out of descriptors or memory. Without
// another try the port would be dead until the next restart. Trying again at once would spin, since
// a waiting peer keeps accept from blocking while there is no descriptor to give it.
constexpr std::uint32_t kRetryMilliseconds = 100;

}  // namespace

// All that the thread touches.
class Acceptor::Loop {
 public:
  Loop(std::shared_ptr<Listener> listener, std::shared_ptr<StreamSink> sink)
      : listener_(std::move(listener)), sink_(std::move(sink)) {}

  bool Open() { return listener_->Open() == 0; }
  void Close() {
    closing_.Set(kClosing);
    listener_->Close();
  }
  void Run();

 private:
  bool AcceptOne();

  const std::shared_ptr<Listener> listener_;
  const std::shared_ptr<StreamSink> sink_;
  EventFlags closing_{EventFlags::AutoClear::kNo};
};

Acceptor::Acceptor(std::shared_ptr<Listener> listener, std::shared_ptr<StreamSink> sink,
                   int priority)
    : loop_(std::make_shared<Loop>(std::move(listener), std::move(sink))) {
  if (!loop_->Open()) return;
  thread_.emplace([loop = loop_] { loop->Run(); }, priority);
  // Peers must not queue up at a port that is never accepted from.
  if (!thread_->Start()) loop_->Close();
}

Acceptor::~Acceptor() {
  End();
}

void Acceptor::Close() {
  loop_->Close();
}

void Acceptor::End() {
  Close();
  thread_.reset();
}

void Acceptor::Loop::Run() {
  while (!closing_.Poll(kClosing))
    if (!AcceptOne()) closing_.WaitFor(kClosing, kRetryMilliseconds);
}

// False when there is no connection, or when the sink could not take it; it is dropped then, which
// tells the peer.
bool Acceptor::Loop::AcceptOne() {
  try {
    std::shared_ptr<Connection> connection = listener_->Accept();
    if (!connection) return false;
    sink_->AddStream(std::move(connection));
    return true;
  } catch (const std::exception&) {
    return false;
  }
}

}  // namespace valmere
