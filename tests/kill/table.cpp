#include "tests/kill/table.h"

#include <algorithm>
#include <cstdio>

namespace valmere::test {
namespace {

constexpr int kToldOf = 5;

}  // namespace

Table::Table(const std::vector<std::string>& rows) {
  for (const std::string& name : rows) {
    rows_.emplace_back().name = name;
  }
}

void Table::Add(std::size_t number, const Outcome& outcome) {
  const std::lock_guard hold(lock_);
  Row& row = rows_[number];
  ++row.runs;
  row.unclean += outcome.unclean;
  row.refused += outcome.refused;
  row.lost += outcome.lost;
  row.wrong += outcome.wrong;
  row.leftovers += outcome.leftovers;
  row.behind = std::max(row.behind, outcome.behind);
  if (!outcome.Failed() || ++failures_ > kToldOf) return;
  std::printf("%s, run %d:\n%s", row.name.c_str(), row.runs, outcome.text.c_str());
  std::fflush(stdout);
}

void Table::Print() const {
  std::printf("%-36s %6s %8s %8s %6s %6s %10s %11s\n", "", "runs", "unclean", "refused", "lost",
              "wrong", "leftovers", "behind, ms");
  for (const Row& row : rows_)
    std::printf("%-36s %6d %8d %8d %6d %6d %10d %11lld\n", row.name.c_str(), row.runs, row.unclean,
                row.refused, row.lost, row.wrong, row.leftovers,
                static_cast<long long>(row.behind.count()));
}

}  // namespace valmere::test
