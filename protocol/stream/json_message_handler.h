// Serves a stream of framed JSON messages.
#pragma once

#include <memory>

#include "protocol/stream/data_handler.h"

namespace valmere {

// Purpose: recognises the frame's identifier at the start of a stream.
// Owner, threads, errors: those of DataHandlerFactory.
class JsonMessageFactory : public DataHandlerFactory {
 public:
  std::uint32_t Score(const PeekableStream& stream) const override;
  std::shared_ptr<DataHandler> Create(const std::shared_ptr<PeekableStream>& stream) override;
};

}  // namespace valmere
