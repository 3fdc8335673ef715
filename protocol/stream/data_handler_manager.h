// Gives every new stream a thread and finds out what it carries.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include "driver/sync/task_queue.h"
#include "net/stream_sink.h"
#include "persist/log/log_sink.h"
#include "protocol/stream/data_handler.h"

namespace valmere {

// Purpose: serves each stream on a thread of its own, by the handler that knows its format.
// Owner: shared by the service, the acceptor and the session table.
// Threads: any. Ended by none of its stream threads.
// Errors: a stream for which the system gives no thread is closed at once.
class DataHandlerManager : public StreamSink {
 public:
  // How many bytes a look at a stream asks for.
  static constexpr int kPeekBytes = 32;

  // `log` may be empty. The priority is that of the stream threads.
  DataHandlerManager(ServiceContext context, std::shared_ptr<LogSink> log,
                     std::shared_ptr<TaskQueue> tasks, int priority);
  // As End.
  ~DataHandlerManager() override;
  DataHandlerManager(const DataHandlerManager&) = delete;
  DataHandlerManager& operator=(const DataHandlerManager&) = delete;

  void RegisterFactory(std::shared_ptr<DataHandlerFactory> factory);
  // Starts serving the stream; when that ends the service's end of it is closed.
  void AddStream(std::shared_ptr<Connection> stream) override;
  // Serves the stream on the calling thread: the handler's result, or 0 when none was found.
  int Handle(const std::shared_ptr<PeekableStream>& stream);
  // Closes all streams, then ends their threads, which share the time that one is given. A stream
  // that is added later is closed at once. Threads that did not end in time are logged.
  void End();
  // How many streams are being served; none once all threads have ended and been released.
  std::size_t LiveStreams() const;

 private:
  class Server;
  class StreamTable;

  static void AskForRelease(const std::weak_ptr<StreamTable>& streams,
                            const TaskQueue::Inlet& tasks, std::uint32_t serial);

  const std::shared_ptr<Server> server_;
  const std::shared_ptr<TaskQueue> tasks_;
  const int priority_;
  // Shared with the jobs that release ended streams, which may run after the manager has gone.
  const std::shared_ptr<StreamTable> streams_;
};

}  // namespace valmere
