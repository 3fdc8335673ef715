// Joined texts are compared without being made: they are walked side by side.
#include "store/property/property_key.h"

#include <algorithm>

namespace valmere {

std::string PropertyKey::Text() const {
  std::string text(pieces_[0]);
  for (std::size_t i = 1; i < count_; ++i)
    text.append(1, ':').append(pieces_[i]);
  return text;
}

int PropertyKey::CompareRuns(const PropertyKey& other) const {
  std::string_view own, others;
  std::size_t next = 0, others_next = 0;
  for (;;) {
    while (own.empty() && next < runs())
      own = Run(next++);
    while (others.empty() && others_next < other.runs())
      others = other.Run(others_next++);
    if (own.empty() || others.empty())
      return static_cast<int>(others.empty()) - static_cast<int>(own.empty());
    const std::size_t length = std::min(own.size(), others.size());
    if (const int order = own.substr(0, length).compare(others.substr(0, length)); order != 0)
      return order;
    own.remove_prefix(length);
    others.remove_prefix(length);
  }
}

}  // namespace valmere
