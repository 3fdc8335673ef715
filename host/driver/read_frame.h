// A whole frame of what the driver says on a handle.
#pragma once

#include <cstdint>

#include "host/driver/driver.h"
#include "host/driver/frame_buffer.h"

namespace valmere::host {

// Waits for the next frame; false when the driver has ended the session or the handle was closed.
// Throws std::bad_alloc when the frame finds no memory.
bool ReadFrame(const Driver& driver, std::uint32_t handle, FrameBuffer& frame);

}  // namespace valmere::host
