// Reads message after message and passes each to the property engine, until one can't be read or
// the engine says that the session is over.
#include "protocol/stream/json_message_handler.h"

#include <string>
#include <utility>

#include "protocol/message/property_message.h"
#include "protocol/wire/message_frame.h"
#include "store/engine/property_engine.h"

namespace valmere {
namespace {

class JsonMessageHandler : public DataHandler {
 public:
  explicit JsonMessageHandler(std::shared_ptr<PeekableStream> stream)
      : stream_(std::move(stream)) {}

  int Serve(const ServiceContext& context) override {
    const EndOfConnection end{*context.engine, *stream_->client()};
    PropertyMessage message;
    ReplyBuffer reply;
    while (message.Read(*stream_, &stream_->client()->ended_flag())) {
      if (!context.engine->HandleMessage(message, stream_->client(), reply)) break;
      // Here, because the wait for the next message may be long.
      message.Clear();
    }
    return 1;
  }

 private:
  // However the session ends, what the client left in the engine is removed.
  struct EndOfConnection {
    PropertyEngine& engine;
    ClientConnection& client;
    ~EndOfConnection() { engine.ConnectionEnded(client); }
  };

  const std::shared_ptr<PeekableStream> stream_;
};

}  // namespace

std::uint32_t JsonMessageFactory::Score(const PeekableStream& stream) const {
  const std::string_view identifier(reinterpret_cast<const char*>(kStreamFormatIdentifier.data()),
                                    kStreamFormatIdentifier.size());
  return stream.Peeked().starts_with(identifier) ? 0 : kNotRecognised;
}

std::shared_ptr<DataHandler> JsonMessageFactory::Create(
    const std::shared_ptr<PeekableStream>& stream) {
  return std::make_shared<JsonMessageHandler>(stream);
}

}  // namespace valmere
