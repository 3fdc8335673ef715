// The sums of what kills and stops did, a row for each way.
#pragma once

#include <chrono>
#include <mutex>
#include <string>
#include <vector>

#include "tests/kill/desk.h"

namespace valmere::test {

// Purpose: adds up outcomes and prints them. The first failures are printed at once, with what
// there is to say of them.
// Owner: main.
// Threads: Add from any; the others after all have added.
class Table {
 public:
  explicit Table(const std::vector<std::string>& rows);

  void Add(std::size_t row, const Outcome& outcome);
  void Print() const;
  bool Failed() const { return failures_ > 0; }

 private:
  struct Row {
    std::string name;
    int runs = 0, unclean = 0, refused = 0, lost = 0, wrong = 0, leftovers = 0;
    std::chrono::milliseconds behind{0};
  };

  std::mutex lock_;
  std::vector<Row> rows_;  // guarded by lock_
  int failures_ = 0;       // guarded by lock_
};

}  // namespace valmere::test
