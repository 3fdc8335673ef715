// Letters that are missing, too many, wrong or swapped are counted; case is not. A piece of a name
// is near it too. A name is compared with as many parts of each property's as it has itself.
#include "tools/names/name_suggestion.h"

#include <algorithm>
#include <cctype>
#include <cstddef>
#include <string>
#include <utility>

#include "tools/names/name_resolver.h"

namespace valmere::tools {
namespace {

using client::Property;

constexpr std::size_t kMost = 5;
constexpr std::size_t kLeastPiece = 3;  // letters; shorter pieces are in too many names

std::string Lower(std::string_view text) {
  std::string lower;
  for (const char letter : text)
    lower += static_cast<char>(std::tolower(static_cast<unsigned char>(letter)));
  return lower;
}

std::size_t Difference(std::size_t left, std::size_t right) {
  return std::max(left, right) - std::min(left, right);
}

// The edits that lead from one text to the other, swaps of neighbours counted as one.
std::size_t Distance(std::string_view from, std::string_view to) {
  std::vector<std::size_t> before_last(to.size() + 1);
  std::vector<std::size_t> last(to.size() + 1);
  std::vector<std::size_t> row(to.size() + 1);
  for (std::size_t j = 0; j <= to.size(); ++j)
    row[j] = j;
  for (std::size_t i = 1; i <= from.size(); ++i) {
    std::swap(before_last, last);
    std::swap(last, row);
    row[0] = i;
    for (std::size_t j = 1; j <= to.size(); ++j) {
      const std::size_t change = from[i - 1] == to[j - 1] ? 0 : 1;
      row[j] = std::min({last[j] + 1, row[j - 1] + 1, last[j - 1] + change});
      if (i > 1 && j > 1 && from[i - 1] == to[j - 2] && from[i - 2] == to[j - 1])
        row[j] = std::min(row[j], before_last[j - 2] + 1);
    }
  }
  return row.back();
}

std::string Compared(const Property& property, std::ptrdiff_t slashes) {
  if (slashes == 0) return property.name;
  if (slashes == 1) return property.group_name + "/" + property.name;
  return FullName(property);
}

}  // namespace

std::vector<const Property*> NearestTo(std::string_view name,
                                       std::span<const Property> properties) {
  const std::string wanted = Lower(name);
  const auto slashes = std::count(name.begin(), name.end(), '/');
  const std::size_t limit = std::max<std::size_t>(1, wanted.size() / 4);
  const auto distance_to = [&](const std::string& candidate) {
    if (wanted.size() >= kLeastPiece && candidate.find(wanted) != std::string::npos) return limit;
    if (Difference(candidate.size(), wanted.size()) > limit) return limit + 1;
    return Distance(wanted, candidate);
  };
  std::vector<std::pair<std::size_t, const Property*>> near;
  for (const Property& property : properties) {
    const std::size_t distance = distance_to(Lower(Compared(property, slashes)));
    if (distance <= limit) near.emplace_back(distance, &property);
  }
  std::stable_sort(near.begin(), near.end(),
                   [](const auto& left, const auto& right) { return left.first < right.first; });
  if (near.size() > kMost) near.resize(kMost);
  std::vector<const Property*> nearest;
  nearest.reserve(near.size());
  for (const auto& [distance, property] : near)
    nearest.push_back(property);
  return nearest;
}

}  // namespace valmere::tools
