#include "bench/table.h"

#include <algorithm>
#include <cstdio>

namespace valmere::bench {
namespace {

// With no more digits than mean something.
std::string Rounded(double figure) {
  char text[32];
  const int decimals = figure < 10 ? 2 : figure < 100 ? 1 : 0;
  std::snprintf(text, sizeof text, "%.*f", decimals, figure);
  return text;
}

}  // namespace

double Median(std::vector<double> values) {
  const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
  std::nth_element(values.begin(), middle, values.end());
  return *middle;
}

void Table::Note(const std::string& row, const std::string& column, double figure) {
  const auto place = std::find_if(rows_.begin(), rows_.end(),
                                  [&row](const auto& known) { return known.first == row; });
  Figures& figures =
      place == rows_.end() ? rows_.emplace_back(row, Figures()).second : place->second;
  figures[column].push_back(figure);
}

std::string Table::Shown(const Figures& figures, const std::string& column) const {
  const auto place = figures.find(column);
  return place == figures.end() ? "-" : Rounded(Median(place->second));
}

void Table::Print() const {
  std::string line = "| what |";
  std::string rule = "|---|";
  for (const std::string& column : columns_) {
    line += " " + column + " |";
    rule += "---|";
  }
  std::printf("%s %s / %s |\n%s---|\n", line.c_str(), columns_[1].c_str(), columns_[0].c_str(),
              rule.c_str());
  for (const auto& [what, figures] : rows_) {
    std::printf("| %s |", what.c_str());
    for (const std::string& column : columns_)
      std::printf(" %s |", Shown(figures, column).c_str());
    const auto limit = figures.find(columns_[0]);
    const auto ours = figures.find(columns_[1]);
    const bool compares =
        limit != figures.end() && ours != figures.end() && Median(limit->second) > 0;
    std::printf(" %s |\n",
                compares ? Rounded(Median(ours->second) / Median(limit->second)).c_str() : "-");
  }
}

}  // namespace valmere::bench
