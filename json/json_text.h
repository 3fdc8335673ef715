// The text of a JSON value or key.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>
#include <utility>

namespace valmere {

// Purpose: a text that never changes, in half the room of a string. A short one lies in the object
//   itself, any other in a block of exactly its size. A message may hold millions.
// Owner: the value or member that it belongs to; copies are deep.
// Threads: no lock; const operations may run at the same time.
// Errors: std::bad_alloc.
class JsonText {
 public:
  JsonText() noexcept = default;
  explicit JsonText(std::string_view text) {
    if (text.size() > kMostInside) {
      char* const block = new char[text.size()];
      std::memcpy(bytes_, &block, sizeof block);
      const auto size = static_cast<std::uint32_t>(text.size());
      std::memcpy(bytes_ + sizeof block, &size, sizeof size);
      size_inside_ = kInBlock;
      text.copy(block, text.size());
    } else {
      text.copy(bytes_, text.size());
      size_inside_ = static_cast<std::uint8_t>(text.size());
    }
  }
  // An empty text with a number in its room.
  template <class Number>
  static JsonText With(Number number) noexcept {
    static_assert(sizeof number <= kMostInside);
    JsonText text;
    std::memcpy(text.bytes_, &number, sizeof number);
    return text;
  }
  JsonText(const JsonText& other) {
    if (other.size_inside_ == kInBlock) {
      *this = JsonText(other.view());
    } else {
      std::memcpy(bytes_, other.bytes_, sizeof bytes_);
      size_inside_ = other.size_inside_;
    }
    note_ = other.note_;
  }
  JsonText(JsonText&& other) noexcept { TakeFrom(other); }
  JsonText& operator=(JsonText other) noexcept {
    Free();
    TakeFrom(other);
    return *this;
  }
  ~JsonText() { Free(); }

  std::string_view view() const noexcept {
    if (size_inside_ != kInBlock) return {bytes_, size_inside_};
    std::uint32_t size;
    std::memcpy(&size, bytes_ + sizeof(char*), sizeof size);
    return {Block(), size};
  }
  operator std::string_view() const noexcept { return view(); }
  // The number that it was made with.
  template <class Number>
  Number As() const noexcept {
    Number number;
    std::memcpy(&number, bytes_, sizeof number);
    return number;
  }

  // A byte for the holder's use. It is copied and moved with the text.
  std::uint8_t note() const noexcept { return note_; }
  void set_note(std::uint8_t note) noexcept { note_ = note; }

 private:
  static constexpr std::size_t kMostInside = 14;
  static constexpr std::uint8_t kInBlock = 0xff;

  char* Block() const noexcept {
    char* block;
    std::memcpy(&block, bytes_, sizeof block);
    return block;
  }
  void Free() noexcept {
    if (size_inside_ == kInBlock) delete[] Block();
  }
  // What this held is gone already.
  void TakeFrom(JsonText& other) noexcept {
    std::memcpy(bytes_, other.bytes_, sizeof bytes_);
    size_inside_ = std::exchange(other.size_inside_, std::uint8_t{0});
    note_ = other.note_;
  }

  alignas(8) char bytes_[kMostInside] = {};  // the text, or where its block is and its size
  std::uint8_t size_inside_ = 0;
  std::uint8_t note_ = 0;
};

static_assert(sizeof(JsonText) == 16);

inline bool operator==(const JsonText& left, const JsonText& right) {
  return left.view() == right.view();
}
inline bool operator==(const JsonText& left, std::string_view right) {
  return left.view() == right;
}
inline bool operator<(const JsonText& left, const JsonText& right) {
  return left.view() < right.view();
}

}  // namespace valmere
