// Rows in columns, for a terminal.
#pragma once

#include <string>
#include <vector>

#include "tools/output/output.h"

namespace valmere::tools {

// Purpose: prints rows under titles, as wide as they need; what does not fit into the terminal's
//   width is shortened, the last column first, then the widest.
// Owner: a command.
// Threads: one.
// Errors: none; Output notes them.
class Table {
 public:
  explicit Table(std::vector<std::string> titles) : titles_(std::move(titles)) {}

  // As many cells as there are titles; control characters are escaped.
  void AddRow(const std::vector<std::string>& cells);
  void Print(Output& out) const;

 private:
  std::vector<std::size_t> Widths(std::size_t columns) const;

  const std::vector<std::string> titles_;
  std::vector<std::vector<std::string>> rows_;
};

}  // namespace valmere::tools
