// A client's socket as the service sees it.
#pragma once

#include <array>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <thread>

#include "host/socket/clients.h"
#include "host/socket/frame_position.h"
#include "host/socket/outbox.h"
#include "host/socket/patience.h"
#include "host/socket/peer.h"
#include "host/socket/unread_watch.h"
#include "net/connection.h"
#include "platform/posix/descriptor.h"

namespace valmere::host {

// Purpose: carries a client's bytes to the thread of the service that serves it, and frames back,
// without a thread of its own. A read waits in the kernel; a write never waits: what the socket does
// not take leaves through the outbox. While an answer waits there, nothing more is read: a client
// that does not read is not served. A client that exceeds a limit is closed, and the operator is
// told which one it was.
// Owner: the service; while something waits for the client, the watch too.
// Threads: as Connection; the thread that reads is the one that answers.
// Errors: as Connection. What is written to a client that has gone is dropped, and what it sent
// before still counts. A write that throws std::bad_alloc has closed the stream.
class ClientStream final : public Connection, public std::enable_shared_from_this<ClientStream> {
 public:
  // `watch` must outlive the stream's last write.
  ClientStream(platform::Descriptor socket, Peer peer, Clients::Place place,
               std::shared_ptr<Clients> clients, UnreadWatch& watch);
  ~ClientStream() override;

  int Read(void* buffer, int length) override;
  int Write(const void* buffer, int length) override;
  int WriteShared(const SharedFrame& frame, EventFlags::PendingWake& wake) override;
  int WriteForOther(const SharedFrame& frame, EventFlags::PendingWake& wake) override;
  bool AwaitRoom(platform::Ticks deadline) override;
  // What waits for the client is still sent, for as long as a client may leave it unread.
  void Close() override;
  bool IsOpen() const override { return !closed_ && !gone_; }
  bool ComesInPieces() const override { return true; }
  void ExplainEnd(std::string_view cause) override;
  ClientAccount* account() override { return &account_; }

  // What the client has sent by now is the last that is read.
  void Finish();
  // Closes it and drops what waits for the client.
  void Abandon();

  // For the watch.
  int descriptor() const { return socket_.get(); }
  bool HasWaiting() const { return !outbox_.empty(); }
  // Sends what the socket takes now; false when nothing waits any more.
  bool SendWaiting();
  // Whether something has waited for too long, on the watch's clock.
  bool IsOverdue(std::chrono::milliseconds now) const;
  void CloseOverdue();

 private:
  int Send(const Outbox::Frame& frame, Outbox::Kind kind);
  int SendOrClose(const Outbox::Frame& frame, Outbox::Kind kind);
  bool IsReader() const;
  Outbox::Kind KindOfWrite() const;
  int TakeBuffered(void* buffer, int length);
  int Receive(void* buffer, std::size_t length);
  bool AwaitBytes();
  bool IsUnframedForTooLong();
  void AwaitAnswersTaken();
  void Advance(const void* bytes, int count);
  void DropUnread();
  void GiveUpSending();
  void CloseFor(std::string_view cause);
  const Limits& limits() const { return clients_->limits(); }

  // Holds an ordinary request whole, and costs each client so much.
  static constexpr std::size_t kBufferBytes = 2048;

  const std::shared_ptr<Clients> clients_;
  const Clients::Place place_;
  const platform::Descriptor socket_;
  const Peer peer_;
  UnreadWatch& watch_;
  ClientAccount account_;
  Outbox outbox_;
  std::atomic<bool> closed_{false};  // by the service, or for a limit
  std::atomic<bool> gone_{false};    // the client takes nothing any more
  std::atomic<std::thread::id> reader_{};

  // The reader's own.
  FramePosition position_;
  std::optional<Patience> frame_patience_;  // while a frame is begun and not complete
  std::optional<std::chrono::steady_clock::time_point> unframed_since_;
  std::size_t buffered_begin_ = 0;
  std::size_t buffered_end_ = 0;
  std::array<unsigned char, kBufferBytes> buffer_;
};

}  // namespace valmere::host
