// The texts that properties are found under.
#pragma once

#include <array>
#include <cstddef>
#include <string>
#include <string_view>

namespace valmere {

// Purpose: a key, as the pieces that ":" joins; saves keeping and building the joined text.
// Owner: its user; the pieces must outlive it.
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
  // Below, at or above zero as the joined text comes before, equals or comes after the other's,
  // byte by byte.
  int Compare(const PropertyKey& other) const {
    if (count_ != other.count_) return CompareRuns(other);
    for (std::size_t i = 0; i < count_; ++i) {
      if (pieces_[i].size() != other.pieces_[i].size()) return CompareRuns(other);
      const int order = pieces_[i].compare(other.pieces_[i]);
      if (order != 0) return order;
    }
    return 0;
  }

 private:
  // Nearly all keys are made of GUIDs, so that pieces have the same lengths. This is for the others.
  int CompareRuns(const PropertyKey& other) const;
  // The joined text in runs: pieces, and the colons between them.
  std::size_t runs() const { return 2 * count_ - 1; }
  std::string_view Run(std::size_t i) const { return i % 2 == 0 ? pieces_[i / 2] : ":"; }

  std::array<std::string_view, 3> pieces_;
  std::size_t count_;
};

// Orders joined texts byte by byte.
inline bool operator<(const PropertyKey& a, const PropertyKey& b) {
  return a.Compare(b) < 0;
}
inline bool operator==(const PropertyKey& a, const PropertyKey& b) {
  return a.Compare(b) == 0;
}

}  // namespace valmere
