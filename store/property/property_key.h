// The texts that properties are found under.
#pragma once

#include <array>
#include <cstddef>
#include <string>
#include <string_view>

namespace valmere {

// Purpose: a key to look for, as the pieces that ":" joins; saves building the joined text.
// Owner: the caller of the look-up; the pieces must outlive it.
// Threads: a value.
// Errors: Text throws std::bad_alloc.
// Keys are equal when their joined texts are: a ":" within a piece is not guarded against.
class PropertyKey {
 public:
  PropertyKey(std::string_view group_guid, std::string_view guid)
      : pieces_{group_guid, guid}, count_(2) {}
  PropertyKey(std::string_view component, std::string_view group_guid, std::string_view guid)
      : pieces_{component, group_guid, guid}, count_(3) {}

  std::string Text() const;
  // Below, at or above zero as the joined text comes before, equals or comes after `text`, byte by
  // byte.
  int Compare(std::string_view text) const;

 private:
  std::array<std::string_view, 3> pieces_;
  std::size_t count_;
};

// Orders joined texts byte by byte, in containers that are also asked for keys in pieces.
struct PropertyKeyLess {
  using is_transparent = void;

  bool operator()(std::string_view a, std::string_view b) const { return a < b; }
  bool operator()(std::string_view a, const PropertyKey& b) const { return b.Compare(a) > 0; }
  bool operator()(const PropertyKey& a, std::string_view b) const { return a.Compare(b) < 0; }
};

}  // namespace valmere
