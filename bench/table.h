// What a bench has measured of several programs in several rounds, as the rows of a table.
#pragma once

#include <map>
#include <string>
#include <vector>

namespace valmere::bench {

double Median(std::vector<double> values);

// Purpose: a row for each thing that is measured, a column for each program; medians of the rounds.
// Owner: the bench.
// Threads: one.
// Errors: std::bad_alloc.
class Table {
 public:
  // The first two are compared in a last column: the limit, and ours.
  explicit Table(std::vector<std::string> columns) : columns_(std::move(columns)) {}

  // Rows are in the order of their first figures.
  void Note(const std::string& row, const std::string& column, double figure);
  void Print() const;

 private:
  using Figures = std::map<std::string, std::vector<double>>;  // by column

  std::string Shown(const Figures& figures, const std::string& column) const;

  const std::vector<std::string> columns_;
  std::vector<std::pair<std::string, Figures>> rows_;
};

}  // namespace valmere::bench
