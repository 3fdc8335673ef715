#include "tests/soak/summary.h"

#include <cstdio>

namespace valmere::test {
namespace {

constexpr std::uint32_t kMostPrinted = 20;

constexpr std::array<const char*, static_cast<std::size_t>(Kind::kCount)> kNames = {
    "rounds",
    "properties published",
    "changes by owners",
    "properties withdrawn",
    "sets sent",
    "sets that reached their owner",
    "sets of the service's own",
    "gets",
    "subscriptions",
    "entries told to subscribers",
    "subscriptions renewed",
    "clients that vanished",
    "handles abused",
    "stores",
    "loads",
    "overrides merged",
    "unloads amid long messages",
    "changes in floods",
    "of them told of",
    "quiet points",
    "values checked",
};

}  // namespace

void Summary::Fail(const std::string& text) {
  if (failures_++ >= kMostPrinted) return;
  const std::lock_guard hold(printing_);
  std::fprintf(stderr, "soak: %s\n", text.c_str());
}

void Summary::Print() const {
  for (std::size_t i = 0; i < kNames.size(); ++i)
    std::printf("%12llu %s\n", static_cast<unsigned long long>(counts_.at(i).load()), kNames.at(i));
  if (Failed()) std::printf("%12u FAILURES\n", failures_.load());
  std::fflush(stdout);
}

}  // namespace valmere::test
