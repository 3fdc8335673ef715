// One thread per stream. A thread can't release its own wrapper, so its last act is to ask the task
// queue to do so. What it serves with is shared with it: a thread that was left behind at the end
// may need it for longer than the manager is there.
#include "protocol/stream/data_handler_manager.h"

#include <algorithm>
#include <atomic>
#include <exception>
#include <new>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "driver/sync/lock.h"
#include "driver/sync/worker_thread.h"
#include "net/client_connection.h"
#include "persist/log/debug_switches.h"

namespace valmere {
namespace {

constexpr std::string_view kUnknownFormat =
    "DataHandlerManager encountered an unknown stream format";

std::atomic<std::uint32_t> g_next_serial{0};

}  // namespace

// What serves a stream, on the calling thread.
class DataHandlerManager::Server {
 public:
  Server(ServiceContext context, std::shared_ptr<LogSink> log)
      : context_(std::move(context)), log_(std::move(log)) {}

  void RegisterFactory(std::shared_ptr<DataHandlerFactory> factory) EXCLUDES(lock_) {
    const ScopedLock hold(lock_);
    factories_.push_back(std::move(factory));
  }
  int Handle(const std::shared_ptr<PeekableStream>& stream) EXCLUDES(lock_);
  void HandleAndClose(const std::shared_ptr<PeekableStream>& stream) EXCLUDES(lock_);
  template <class Message>
  void LogError(Message message) const {
    LogIn(DebugZone::kError, log_, message);
  }

 private:
  DataHandlerFactory* BestFactory(const PeekableStream& stream) EXCLUDES(lock_);

  const ServiceContext context_;
  const std::shared_ptr<LogSink> log_;
  Lock lock_;
  std::vector<std::shared_ptr<DataHandlerFactory>> factories_ GUARDED_BY(lock_);
};

// The live streams by serial number. Once closed it takes no more.
class DataHandlerManager::StreamTable {
 public:
  struct Record {
    std::shared_ptr<PeekableStream> stream;
    std::unique_ptr<WorkerThread> thread;
    bool overdue = false;  // it has ended, and there was no memory for the job that releases it
  };
  // Threads that had not ended when their time was over.
  struct Stuck {
    int forced = 0;
    int left_behind = 0;
  };

  // Records the stream and starts its thread, in one step: the thread's end finds the record. False
  // when the table is closed or no thread can be had.
  bool Add(std::uint32_t serial, Record record) EXCLUDES(lock_) {
    const ScopedLock hold(lock_);
    if (closed_) return false;
    WorkerThread* thread = record.thread.get();
    const auto place = records_.emplace(serial, std::move(record)).first;
    if (thread->Start()) return true;
    records_.erase(place);
    return false;
  }

  // Releases one record and those that are overdue, waiting for their threads; called on none of
  // them.
  void Release(std::uint32_t serial) EXCLUDES(lock_) {
    Record ended = Take(serial);
    while (ended.thread)
      ended = TakeOverdue();
  }

  // The record stays until the next one is released.
  void Defer(std::uint32_t serial) noexcept EXCLUDES(lock_) {
    const ScopedLock hold(lock_);
    const auto place = records_.find(serial);
    if (place == records_.end()) return;
    place->second.overdue = true;
    ++overdue_;
  }

  // Ends all streams, and counts those that did not end by themselves. All are closed before the
  // first is waited for.
  Stuck CloseAll() EXCLUDES(lock_) {
    Records ending;
    {
      const ScopedLock hold(lock_);
      closed_ = true;
      ending.swap(records_);
    }
    for (auto& [serial, record] : ending)
      record.stream->Close();
    const platform::Ticks deadline = WorkerThread::TimeToEnd();
    Stuck stuck;
    for (auto& [serial, record] : ending) {
      const WorkerThread::Ending end = record.thread->EndBy(deadline);
      if (end == WorkerThread::Ending::kForced) ++stuck.forced;
      if (end == WorkerThread::Ending::kLeftBehind) ++stuck.left_behind;
    }
    return stuck;
  }

  std::size_t size() const EXCLUDES(lock_) {
    const ScopedLock hold(lock_);
    return records_.size();
  }

 private:
  using Records = std::unordered_map<std::uint32_t, Record>;

  Record Take(std::uint32_t serial) EXCLUDES(lock_) {
    const ScopedLock hold(lock_);
    return TakeAt(records_.find(serial));
  }
  Record TakeOverdue() EXCLUDES(lock_) {
    const ScopedLock hold(lock_);
    if (overdue_ == 0) return {};
    --overdue_;
    return TakeAt(std::find_if(records_.begin(), records_.end(),
                               [](const auto& entry) { return entry.second.overdue; }));
  }
  Record TakeAt(Records::iterator place) REQUIRES(lock_) {
    if (place == records_.end()) return {};
    Record taken = std::move(place->second);
    records_.erase(place);
    return taken;
  }

  mutable Lock lock_;
  bool closed_ GUARDED_BY(lock_) = false;
  std::size_t overdue_ GUARDED_BY(lock_) = 0;
  Records records_ GUARDED_BY(lock_);
};

void DataHandlerManager::Server::HandleAndClose(const std::shared_ptr<PeekableStream>& stream) {
  try {
    Handle(stream);
  } catch (const std::exception&) {
    // Memory ran out in the middle of a message: this stream ends, the others go on.
  }
  stream->Close();
}

int DataHandlerManager::Server::Handle(const std::shared_ptr<PeekableStream>& stream) {
  DataHandlerFactory* factory = nullptr;
  while (factory == nullptr) {
    if (!stream->Peek(kPeekBytes)) {
      if (!stream->Peeked().empty() && !stream->client()->ended())
        stream->ExplainEnd("what it sent is of no format that is known");
      if (log_) log_->Log(kUnknownFormat);
      return 0;
    }
    factory = BestFactory(*stream);
  }
  const std::shared_ptr<DataHandler> handler = factory->Create(stream);
  return handler ? handler->Serve(context_) : 0;
}

DataHandlerFactory* DataHandlerManager::Server::BestFactory(const PeekableStream& stream) {
  constexpr std::uint32_t kWorstScore = 0xffff;
  const ScopedLock hold(lock_);
  DataHandlerFactory* best = nullptr;
  std::uint32_t best_score = kWorstScore;
  for (const auto& factory : factories_) {
    const std::uint32_t score = factory->Score(stream);
    if (score < best_score) {
      best = factory.get();
      best_score = score;
    }
  }
  return best;
}

DataHandlerManager::DataHandlerManager(ServiceContext context, std::shared_ptr<LogSink> log,
                                       std::shared_ptr<TaskQueue> tasks, int priority)
    : server_(std::make_shared<Server>(std::move(context), std::move(log))),
      tasks_(std::move(tasks)),
      priority_(priority),
      streams_(std::make_shared<StreamTable>()) {}

DataHandlerManager::~DataHandlerManager() {
  End();
}

void DataHandlerManager::End() {
  const StreamTable::Stuck stuck = streams_->CloseAll();
  if (stuck.forced + stuck.left_behind == 0) return;
  server_->LogError([&] {
    return "Stream threads did not end in time: " + std::to_string(stuck.forced) +
           " ended by force, " + std::to_string(stuck.left_behind) + " left behind";
  });
}

void DataHandlerManager::RegisterFactory(std::shared_ptr<DataHandlerFactory> factory) {
  server_->RegisterFactory(std::move(factory));
}

void DataHandlerManager::AddStream(std::shared_ptr<Connection> stream) {
  const std::uint32_t serial = g_next_serial.fetch_add(1);
  auto peekable =
      std::make_shared<PeekableStream>(std::make_shared<ClientConnection>(std::move(stream)));
  // The thread belongs to the table, and may outlive the queue; it must not be the last to hold it.
  auto thread = std::make_unique<WorkerThread>(
      [server = server_, streams = std::weak_ptr(streams_), tasks = tasks_->inlet(), serial,
       peekable] {
        server->HandleAndClose(peekable);
        AskForRelease(streams, tasks, serial);
      },
      priority_);
  if (!streams_->Add(serial, {peekable, std::move(thread)})) peekable->Close();
}

void DataHandlerManager::AskForRelease(const std::weak_ptr<StreamTable>& streams,
                                       const TaskQueue::Inlet& tasks, std::uint32_t serial) {
  const auto table = streams.lock();
  if (!table) return;
  try {
    tasks.Push([table, serial] { table->Release(serial); });
  } catch (const std::bad_alloc&) {
    table->Defer(serial);
  }
}

int DataHandlerManager::Handle(const std::shared_ptr<PeekableStream>& stream) {
  return server_->Handle(stream);
}

std::size_t DataHandlerManager::LiveStreams() const {
  return streams_->size();
}

}  // namespace valmere
