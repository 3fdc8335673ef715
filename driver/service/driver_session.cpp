// A handle that is opened and never written to costs no thread.
#include "driver/service/driver_session.h"

#include <exception>
#include <utility>

namespace valmere {

DriverSession::DriverSession(std::shared_ptr<StreamSink> streams) : streams_(std::move(streams)) {}

int DriverSession::Read(void* buffer, int length) {
  return pipe_.driver_end()->Read(buffer, length);
}

int DriverSession::Write(const void* buffer, int length) {
  const int count = pipe_.driver_end()->Write(buffer, length);
  if (count < 1 || !first_write_pending_.load(std::memory_order_relaxed)) return count;
  if (first_write_pending_.exchange(false)) {
    const std::shared_ptr<StreamSink> streams = std::move(streams_);
    try {
      streams->AddStream(pipe_.service_end());
    } catch (const std::exception&) {
      Close();  // no thread will read what is written here, or answer it
      throw;
    }
  }
  return count;
}

void DriverSession::Close() {
  pipe_.driver_end()->Close();
  pipe_.service_end()->Close();
  if (first_write_pending_.exchange(false)) streams_.reset();
}

bool DriverSession::IsOpen() const {
  return pipe_.driver_end()->IsOpen();
}

}  // namespace valmere
