// A line is built on the stack. What happened to earlier lines is kept in two words that every
// thread may change at any time; a thread that can't write its line puts back what it took out of
// them.
#include "platform/standard_error.h"

#include <algorithm>
#include <array>
#include <charconv>

namespace valmere::platform {
namespace {

constinit std::atomic<std::uint64_t> g_lines_left_out{0};
constinit std::atomic<bool> g_line_is_torn{false};  // of the last one, only the beginning went out
constinit BurstLimit g_sparing{kErrorLineBurst, 1000 * kTicksPerMillisecond / kErrorLinesPerSecond};

class LineBuffer {
 public:
  void Append(std::string_view text, std::size_t limit = kMostOfferedBytes) {
    const std::size_t count = std::min(text.size(), limit - size_);
    std::copy_n(text.data(), count, bytes_.data() + size_);
    size_ += count;
  }
  void AppendNotice(std::uint64_t left_out) {
    std::array<char, 20> number;
    const auto end = std::to_chars(number.data(), number.data() + number.size(), left_out).ptr;
    Append("valmere: ");
    Append({number.data(), static_cast<std::size_t>(end - number.data())});
    Append(left_out == 1 ? " line before this one was left out\n"
                         : " lines before this one were left out\n");
  }
  // With room for the line end that follows.
  void AppendLine(std::initializer_list<std::string_view> parts) {
    const std::size_t limit = size_ + kLongestErrorLine - 1;
    for (const std::string_view part : parts)
      Append(part, limit);
    Append("\n");
  }
  std::string_view bytes() const { return {bytes_.data(), size_}; }

 private:
  // The longest notice has 66 bytes, and a line end may stand before it.
  static_assert(kMostOfferedBytes - kLongestErrorLine >= 67);

  std::array<char, kMostOfferedBytes> bytes_;
  std::size_t size_ = 0;
};

}  // namespace

bool BurstLimit::Allows(Ticks now) noexcept {
  Ticks paid = paid_until_.load(std::memory_order_relaxed);
  Ticks next = 0;
  do {
    next = std::max(paid, now) + interval_;
    if (next - now > burst_time_) return false;
  } while (!paid_until_.compare_exchange_weak(paid, next, std::memory_order_relaxed));
  return true;
}

void WriteErrorLine(std::initializer_list<std::string_view> parts) noexcept {
  LineBuffer line;
  const bool torn = g_line_is_torn.exchange(false);
  const std::uint64_t left_out = g_lines_left_out.exchange(0);
  if (torn) line.Append("\n");
  if (left_out > 0) line.AppendNotice(left_out);
  line.AppendLine(parts);
  const Taken taken = OfferToStandardError(line.bytes());
  if (taken == Taken::kAll) return;
  g_lines_left_out += left_out + 1;
  if (torn || taken == Taken::kPart) g_line_is_torn = true;
}

void WriteErrorLineSparingly(std::initializer_list<std::string_view> parts) noexcept {
  if (g_sparing.Allows(MonotonicNow()))
    WriteErrorLine(parts);
  else
    ++g_lines_left_out;
}

}  // namespace valmere::platform
