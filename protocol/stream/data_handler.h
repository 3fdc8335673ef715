// What serves a stream, and how it is chosen.
#pragma once

#include <cstdint>
#include <memory>

#include "protocol/stream/peekable_stream.h"

namespace valmere {

class PropertyEngine;

// What every handler is given: the service as handlers need it.
struct ServiceContext {
  std::shared_ptr<PropertyEngine> engine;
};

// Purpose: serves one stream for as long as that lasts.
// Owner: the thread that serves the stream.
// Threads: that thread alone.
// Errors: what Serve returns; it throws nothing but what memory running out throws.
class DataHandler {
 public:
  virtual ~DataHandler() = default;
  virtual int Serve(const ServiceContext& context) = 0;
};

// Purpose: tells whether a stream is of its format, and makes the handler for it.
// Owner: the DataHandlerManager's list.
// Threads: Score under the list's lock; Create from any serving thread, several at once.
// Errors: an empty handler when none can be made.
class DataHandlerFactory {
 public:
  static constexpr std::uint32_t kNotRecognised = 0xffffffff;

  virtual ~DataHandlerFactory() = default;
  // How well the stream's peeked bytes fit; lower is better. Reads nothing from the stream.
  virtual std::uint32_t Score(const PeekableStream& stream) const = 0;
  virtual std::shared_ptr<DataHandler> Create(const std::shared_ptr<PeekableStream>& stream) = 0;
};

}  // namespace valmere
