// A frame's memory, used again when no connection holds the frame any more.
#pragma once

#include <cstddef>
#include <memory>
#include <string>

#include "net/shared_frame.h"

namespace valmere {

// Purpose: the text that one frame after another is written into. As long as every connection lets
// its frames go at once, this needs no further allocation.
// Owner: the writer of the frames.
// Threads: one; the frames are let go on any.
// Errors: std::bad_alloc from text.
class ReusedFrame {
 public:
  // The text of the last frame, or a new and empty one if that is held still.
  std::string& text() {
    if (!IsAlone()) text_ = std::make_shared<std::string>();
    return *text_;
  }
  // The text as it is; it is not to be written to while others hold it.
  SharedFrame frame() const { return text_; }
  // Gives up memory of more than `most` bytes, and that of a frame that is held still.
  void Trim(std::size_t most) noexcept {
    if (!IsAlone() || text_->capacity() > most) text_.reset();
  }

 private:
  // Letting go of one handle more comes after what the last holder did before it let go of its own;
  // a look at the count alone promises no order.
  bool IsAlone() const noexcept {
    if (text_.use_count() != 1) return false;
    const std::shared_ptr<std::string> last = text_;
    return true;
  }

  std::shared_ptr<std::string> text_;
};

}  // namespace valmere
