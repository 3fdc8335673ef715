// The lines of a tree tell of what comes after them: whether a group, or a property, is the last.
#include "tools/output/property_tree.h"

#include <algorithm>
#include <span>
#include <string>
#include <string_view>

#include "tools/output/text.h"

namespace valmere::tools {
namespace {

using client::Property;
using Properties = std::span<const Property* const>;

struct Lines {
  std::string_view more;    // before one that others follow
  std::string_view last;    // before the last one
  std::string_view beside;  // before what stands below one that others follow
};

constexpr Lines kDrawn{"├─ ", "└─ ", "│  "};
constexpr Lines kTyped{"|- ", "`- ", "|  "};
constexpr std::string_view kBlank = "   ";

// Takes the properties off the front that are the same by `same` as the first.
template <typename Same>
Properties TakeFront(Properties& rest, Same same) {
  const auto end = std::find_if_not(rest.begin(), rest.end(), [&](const Property* property) {
    return same(*rest.front(), *property);
  });
  const auto count = static_cast<std::size_t>(end - rest.begin());
  const Properties front = rest.first(count);
  rest = rest.subspan(count);
  return front;
}

class Tree {
 public:
  explicit Tree(Output& out)
      : out_(out), lines_(TerminalShowsUtf8() || !out.terminal() ? kDrawn : kTyped) {}

  void Component(Properties properties) {
    out_.ShownLine(out_.Styled(TextStyle::kTitle, properties.front()->component_name));
    while (!properties.empty()) {
      const Properties group =
          TakeFront(properties, [](const Property& left, const Property& right) {
            return left.group_guid == right.group_guid && left.group_name == right.group_name;
          });
      Group(group, properties.empty());
    }
  }

 private:
  void Group(Properties properties, bool last) {
    out_.ShownLine(out_.Styled(TextStyle::kFaint, last ? lines_.last : lines_.more) +
                   out_.Styled(TextStyle::kName, properties.front()->group_name));
    const std::string indent(last ? kBlank : lines_.beside);
    for (std::size_t i = 0; i < properties.size(); ++i) {
      const bool end = i + 1 == properties.size();
      Leaf(*properties[i], indent + std::string(end ? lines_.last : lines_.more));
    }
  }

  void Leaf(const Property& property, const std::string& before) {
    const std::string text = out_.Shown(property.name + " = " + property.value);
    if (!out_.terminal()) return out_.ShownLine(before + text);
    const std::size_t taken = DisplayWidth(before);
    const std::size_t room = out_.columns() > taken ? out_.columns() - taken : 1;
    out_.ShownLine(out_.Styled(TextStyle::kFaint, before) + Shorten(text, room));
  }

  Output& out_;
  const Lines lines_;
};

}  // namespace

void PrintTree(const std::vector<const Property*>& properties, Output& out) {
  Tree tree(out);
  for (Properties rest(properties); !rest.empty();) {
    tree.Component(TakeFront(rest, [](const Property& left, const Property& right) {
      return left.component == right.component && left.component_name == right.component_name;
    }));
  }
}

}  // namespace valmere::tools
