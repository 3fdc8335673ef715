// One thread per stream. A thread can't release its own wrapper, so its last act is to ask the task
// queue to do so.
#include "protocol/data_handler_manager.h"

#include <algorithm>
#include <atomic>
#include <exception>
#include <new>
#include <unordered_map>
#include <utility>

#include "driver/sync/worker_thread.h"
#include "protocol/client_connection.h"

namespace valmere {
namespace {

constexpr std::string_view kUnknownFormat =
    "DataHandlerManager encountered an unknown stream format";

std::atomic<std::uint32_t> g_next_serial{0};

}  // namespace

// The live streams by serial number. Once closed it takes no more.
class DataHandlerManager::StreamTable {
 public:
  struct Record {
    std::shared_ptr<PeekableStream> stream;
    std::unique_ptr<WorkerThread> thread;
    bool overdue = false;  // it has ended, and nobody could be asked to release it
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

  // Ends all streams. All are told before the first is waited for.
  void CloseAll() EXCLUDES(lock_) {
    Records ending;
    {
      const ScopedLock hold(lock_);
      closed_ = true;
      ending.swap(records_);
    }
    for (auto& [serial, record] : ending)
      record.stream->Close();
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

DataHandlerManager::DataHandlerManager(ServiceContext context, std::shared_ptr<LogSink> log,
                                       std::shared_ptr<TaskQueue> tasks, int priority)
    : context_(std::move(context)),
      log_(std::move(log)),
      tasks_(std::move(tasks)),
      priority_(priority),
      streams_(std::make_shared<StreamTable>()) {}

DataHandlerManager::~DataHandlerManager() {
  streams_->CloseAll();
}

void DataHandlerManager::RegisterFactory(std::shared_ptr<DataHandlerFactory> factory) {
  const ScopedLock hold(factories_lock_);
  factories_.push_back(std::move(factory));
}

void DataHandlerManager::AddStream(std::shared_ptr<Connection> stream) {
  const std::uint32_t serial = g_next_serial.fetch_add(1);
  auto peekable =
      std::make_shared<PeekableStream>(std::make_shared<ClientConnection>(std::move(stream)));
  auto thread = std::make_unique<WorkerThread>(
      [this, serial, peekable] {
        ServeAndClose(peekable);
        AskForRelease(serial);
      },
      priority_);
  if (!streams_->Add(serial, {peekable, std::move(thread)})) peekable->Close();
}

void DataHandlerManager::ServeAndClose(const std::shared_ptr<PeekableStream>& stream) {
  try {
    Handle(stream);
  } catch (const std::exception&) {
    // Memory ran out in the middle of a message: this stream ends, the others go on.
  }
  stream->Close();
}

void DataHandlerManager::AskForRelease(std::uint32_t serial) {
  try {
    tasks_->Push([streams = streams_, serial] { streams->Release(serial); });
  } catch (const std::bad_alloc&) {
    streams_->Defer(serial);
  }
}

int DataHandlerManager::Handle(const std::shared_ptr<PeekableStream>& stream) {
  DataHandlerFactory* factory = nullptr;
  while (factory == nullptr) {
    if (!stream->Peek(kPeekBytes)) {
      if (log_) log_->Log(kUnknownFormat);
      return 0;
    }
    factory = BestFactory(*stream);
  }
  const std::shared_ptr<DataHandler> handler = factory->Create(stream);
  return handler ? handler->Serve(context_) : 0;
}

DataHandlerFactory* DataHandlerManager::BestFactory(const PeekableStream& stream) {
  constexpr std::uint32_t kWorstScore = 0xffff;
  const ScopedLock hold(factories_lock_);
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

std::size_t DataHandlerManager::LiveStreams() const {
  return streams_->size();
}

}  // namespace valmere
