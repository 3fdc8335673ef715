// Cells are escaped when they come, so that their width is the width of what is shown.
#include "tools/output/table.h"

#include <algorithm>
#include <numeric>

#include "tools/output/text.h"

namespace valmere::tools {
namespace {

constexpr std::size_t kGap = 2;
// Columns that a cell keeps however narrow the terminal is, and that the last keeps while another
// can be shortened.
constexpr std::size_t kLeast = 4;
constexpr std::size_t kLeastOfLast = 16;

using Cells = std::vector<std::string>;

// The last cell is not filled up: a line must not end in blanks.
void PrintRow(const Cells& cells, const std::vector<std::size_t>& widths, TextStyle style,
              Output& out) {
  std::string line;
  for (std::size_t i = 0; i < cells.size(); ++i) {
    const std::string shown = Shorten(cells[i], widths[i]);
    line += out.Styled(style, shown);
    if (i + 1 < cells.size()) line.append(widths[i] - DisplayWidth(shown) + kGap, ' ');
  }
  if (cells.back().empty()) line.erase(line.find_last_not_of(' ') + 1);
  out.ShownLine(line);
}

void Widen(std::vector<std::size_t>& widths, const Cells& cells) {
  for (std::size_t i = 0; i < cells.size(); ++i)
    widths[i] = std::max(widths[i], DisplayWidth(cells[i]));
}

}  // namespace

void Table::AddRow(const Cells& cells) {
  Cells& row = rows_.emplace_back();
  row.reserve(cells.size());
  for (const std::string& cell : cells)
    row.push_back(EscapeControls(cell));
}

void Table::Print(Output& out) const {
  const std::vector<std::size_t> widths = Widths(out.columns());
  PrintRow(titles_, widths, TextStyle::kTitle, out);
  for (const Cells& row : rows_)
    PrintRow(row, widths, TextStyle::kPlain, out);
}

std::vector<std::size_t> Table::Widths(std::size_t columns) const {
  std::vector<std::size_t> widths(titles_.size(), 0);
  Widen(widths, titles_);
  for (const Cells& row : rows_)
    Widen(widths, row);
  // A longer cell than the terminal is wide only makes the rounds below many.
  for (std::size_t& width : widths)
    width = std::min(width, columns);
  std::size_t total = std::accumulate(widths.begin(), widths.end(), kGap * (widths.size() - 1));
  for (; total > columns; --total) {
    const auto shortened = widths.back() > kLeastOfLast
                               ? widths.end() - 1
                               : std::max_element(widths.begin(), widths.end());
    if (*shortened <= kLeast) break;
    --*shortened;
  }
  return widths;
}

}  // namespace valmere::tools
