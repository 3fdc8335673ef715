// Where a frame that grows gets its memory.
#pragma once

#include <cstddef>
#include <string>

namespace valmere {

// Purpose: gives buffers to frames that outgrow the one that they have.
// Owner: the sender of the frames; must outlive the frames that use it.
// Threads: any.
// Errors: std::bad_alloc.
class FrameMemory {
 public:
  FrameMemory() = default;
  virtual ~FrameMemory() = default;
  FrameMemory(const FrameMemory&) = delete;
  FrameMemory& operator=(const FrameMemory&) = delete;

  // An empty buffer with room for that many bytes at least.
  virtual std::string Take(std::size_t bytes) = 0;
};

}  // namespace valmere
