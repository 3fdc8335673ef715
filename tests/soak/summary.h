// What a run has done and found.
#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

namespace valmere::test {

enum class Kind {
  kRounds,
  kPublications,
  kChanges,
  kWithdrawals,
  kSets,
  kSetsForwarded,
  kOwnSets,
  kGets,
  kSubscriptions,
  kEntriesTold,
  kBroughtBack,
  kVanished,
  kAbused,
  kStores,
  kLoads,
  kOverrides,
  kUnloads,
  kFloodChanges,
  kFloodToldOf,
  kQuietPoints,
  kValuesChecked,
  kCount
};

// Purpose: counts operations by kind and keeps what went wrong.
// Owner: the run; outlives everything that counts.
// Threads: any.
class Summary {
 public:
  void Add(Kind kind, std::uint64_t count = 1) { counts_.at(Index(kind)) += count; }
  std::uint64_t Get(Kind kind) const { return counts_.at(Index(kind)); }
  // Printed at once; the first few are what matters.
  void Fail(const std::string& text);
  bool Failed() const { return failures_ != 0; }
  void Print() const;

 private:
  static std::size_t Index(Kind kind) { return static_cast<std::size_t>(kind); }

  std::array<std::atomic<std::uint64_t>, static_cast<std::size_t>(Kind::kCount)> counts_{};
  std::atomic<std::uint32_t> failures_{0};
  std::mutex printing_;
};

}  // namespace valmere::test
