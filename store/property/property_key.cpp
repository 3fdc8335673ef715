// A look-up names a property by two or three texts, while the property carries the joined text. The
// comparison takes the joined text apart piece by piece.
#include "store/property/property_key.h"

namespace valmere {
namespace {

// Orders `piece` against the start of `rest` and, where they are equal, takes it off.
int Take(std::string_view piece, std::string_view& rest) {
  const std::string_view start = rest.substr(0, piece.size());
  const int order = piece.compare(start);
  if (order == 0) rest.remove_prefix(piece.size());
  return order;
}

}  // namespace

std::string PropertyKey::Text() const {
  std::string text(pieces_[0]);
  for (std::size_t i = 1; i < count_; ++i)
    text.append(1, ':').append(pieces_[i]);
  return text;
}

int PropertyKey::Compare(std::string_view text) const {
  for (std::size_t i = 0; i < count_; ++i) {
    if (i > 0) {
      if (const int order = Take(":", text); order != 0) return order;
    }
    if (const int order = Take(pieces_[i], text); order != 0) return order;
  }
  return text.empty() ? 0 : -1;
}

}  // namespace valmere
