// A transport around another one.
#include "client/observed_transport.h"

#include <string>
#include <utility>

#include "protocol/wire/message_frame.h"

namespace valmere::client {
namespace {

class ObservedTransport final : public Transport {
 public:
  ObservedTransport(std::unique_ptr<Transport> transport, FrameObserver observer)
      : transport_(std::move(transport)), observer_(std::move(observer)) {}

  Result<void> Send(std::string_view frame, Deadline deadline) override {
    observer_(Direction::kSent, frame.substr(kFrameHeaderBytes));
    return transport_->Send(frame, deadline);
  }
  Result<void> Receive(std::string& text, Deadline deadline) override {
    Result<void> received = transport_->Receive(text, deadline);
    if (received) observer_(Direction::kReceived, text);
    return received;
  }
  void Interrupt() noexcept override { transport_->Interrupt(); }
  void Close() override { transport_->Close(); }

 private:
  const std::unique_ptr<Transport> transport_;
  const FrameObserver observer_;
};

}  // namespace

std::unique_ptr<Transport> Observe(std::unique_ptr<Transport> transport, FrameObserver observer) {
  return std::make_unique<ObservedTransport>(std::move(transport), std::move(observer));
}

}  // namespace valmere::client
