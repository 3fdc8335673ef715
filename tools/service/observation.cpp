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

constexpr std::chrono::milliseconds kAskAgain{500};

Deadline NextQuestion(Deadline deadline) {
  if (deadline.never()) return Deadline::After(kAskAgain);
  return Deadline::After(std::min(deadline.left(), kAskAgain));
}

bool AnySeen(const std::vector<Property>& properties, const Seeing& see) {
  return std::any_of(properties.begin(), properties.end(), see);
}

}  // namespace

Result<void> Observe(const Asking& ask, Client& hearing, const Seeing& see, Deadline deadline) {
  for (;;) {
    const auto answer = ask();
    if (!answer) return answer.error();
    if (AnySeen(*answer, see)) return {};
    if (deadline.passed()) return Error{ErrorKind::kTimeout, "time-out"};
    const auto changes = hearing.ReceiveChanges(NextQuestion(deadline));
    if (changes && AnySeen(*changes, see)) return {};
    if (!changes && changes.error().kind != ErrorKind::kTimeout) return changes.error();
  }
}

}  // namespace valmere::tools
