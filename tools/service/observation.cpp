// Changes tell of values that were there only for a moment, answers of those that stayed.
#include "tools/service/observation.h"

#include <algorithm>
#include <chrono>

namespace valmere::tools {
namespace {

using client::Client;
using client::Deadline;
using client::Error;
using client::ErrorKind;
using client::Property;
using client::Result;

constexpr std::chrono::milliseconds kQueryInterval{500};

Deadline NextQuery(Deadline deadline) {
  if (deadline.never()) return Deadline::After(kQueryInterval);
  return Deadline::After(std::min(deadline.left(), kQueryInterval));
}

bool AnyMeets(const std::vector<Property>& properties, const Condition& is_done) {
  return std::any_of(properties.begin(), properties.end(), is_done);
}

}  // namespace

Result<void> Observe(const Query& query, Client& subscriber, const Condition& is_done,
                     Deadline deadline) {
  for (;;) {
    const auto answer = query();
    if (!answer) return answer.error();
    if (AnyMeets(*answer, is_done)) return {};
    if (deadline.passed()) return Error{ErrorKind::kTimeout, "time-out"};
    const auto changes = subscriber.ReceiveChanges(NextQuery(deadline));
    if (changes && AnyMeets(*changes, is_done)) return {};
    if (!changes && changes.error().kind != ErrorKind::kTimeout) return changes.error();
  }
}

}  // namespace valmere::tools
