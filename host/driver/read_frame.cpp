// PRN_Read reports its count whatever happened and leaves the buffer alone when the session has
// ended. So the room for the header is cleared before each read: anything else than the identifier
// afterwards means that nothing came. The driver puts a frame into its pipe in one piece, so once
// the identifier is there, the length and the text are there too, unless the bridge closes the
// handle; its socket takes nothing more by then.
#include "host/driver/read_frame.h"

#include <cstddef>
#include <cstring>

#include "protocol/wire/message_frame.h"

namespace valmere::host {

bool ReadFrame(const Driver& driver, std::uint32_t handle, FrameBuffer& frame) {
  const std::size_t identifier_bytes = kStreamFormatIdentifier.size();
  frame.MakeRoom(kFrameHeaderBytes, 0);
  std::memset(frame.data(), 0, kFrameHeaderBytes);
  driver.Read(handle, frame.data(), identifier_bytes);
  if (std::memcmp(frame.data(), kStreamFormatIdentifier.data(), identifier_bytes) != 0)
    return false;
  driver.Read(handle, frame.data() + identifier_bytes, kLengthFieldBytes);
  const std::uint32_t length = DecodeLength(frame.data() + identifier_bytes);
  frame.set_size(kFrameHeaderBytes + length);
  frame.MakeRoom(frame.size(), kFrameHeaderBytes);
  // A read of no bytes would wait for the frame after this one.
  if (length > 0) driver.Read(handle, frame.data() + kFrameHeaderBytes, length);
  return true;
}

}  // namespace valmere::host
