// A connection that can be looked at before it is read.
#pragma once

#include <atomic>
#include <cstddef>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

#include "net/client_connection.h"
#include "net/connection.h"

namespace valmere {

// Purpose: buffers the bytes that were peeked: a reader still gets the stream from its start.
// Owner: shared by the thread that serves the stream and its handler.
// Threads: one reader; Write and Close from any.
// Errors: those of the connection.
class PeekableStream : public Connection {
 public:
  // Bytes beyond these are read and dropped by further peeks: what no handler recognised by then is
  // no stream of any of them, and must not pile up.
  static constexpr std::size_t kMostPeeked = 64;

  explicit PeekableStream(std::shared_ptr<ClientConnection> client) : client_(std::move(client)) {}

  // The client at the other end.
  const std::shared_ptr<ClientConnection>& client() const { return client_; }

  // Reads up to `count` further bytes, at most 64, by one read call; true when that gave at least
  // one.
  bool Peek(int count);
  // The bytes peeked and not read yet, at most kMostPeeked.
  std::string_view Peeked() const { return std::string_view(peeked_).substr(read_); }

  // Peeked bytes first. A read that they fill only in part goes on with one read of the connection,
  // or with as many as it takes where what was written by one call may arrive in several.
  int Read(void* buffer, int length) override;
  int Write(const void* buffer, int length) override { return client_->Write(buffer, length); }
  void ExplainEnd(std::string_view cause) override { client_->ExplainEnd(cause); }
  ClientAccount* account() override { return client_->account(); }
  // Nothing is read any more, not even what the client queued before: a long queue must not hold up
  // the service that ends the stream.
  void Close() override {
    closed_.store(true);
    client_->Close();
  }
  bool IsOpen() const override { return client_->IsOpen(); }

 private:
  int ReadPeeked(void* buffer, int length);

  const std::shared_ptr<ClientConnection> client_;
  std::atomic<bool> closed_{false};
  std::string peeked_;
  std::size_t read_ = 0;  // how much of peeked_ has been read
};

}  // namespace valmere
