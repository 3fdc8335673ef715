// Thirteen process-wide switches that say what is logged. A check of one that is off costs one
// load.
#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <exception>
#include <memory>

#include "persist/log/log_sink.h"

namespace valmere {

enum class DebugZone : std::size_t {
  kError,     // what was refused, or failed
  kWarning,   // what was passed over
  kInfo,      // sessions and subscriptions that come and go
  kProperty,  // changes of properties
  kDeInit,    // the steps of release
  kPicl,      // this one and the next ones without a word are for client programs
  kSqaMonitor,
  kRamp,
  kInit,  // the steps of construction
  kManufacturing,
  kLeakTracking,  // the live counters
  kThreadIds,     // a line with its number when a thread first logs
  kBpl,
  kCount,
};

namespace internal {
inline std::array<std::atomic<bool>, static_cast<std::size_t>(DebugZone::kCount)> g_zones = {true,
                                                                                             true};
}

// Any thread may read and set any switch.
inline std::atomic<bool>& SwitchOf(DebugZone zone) {
  return internal::g_zones[static_cast<std::size_t>(zone)];
}
inline bool IsOn(DebugZone zone) {
  return SwitchOf(zone).load(std::memory_order_relaxed);
}

// Logs what `message` returns if the zone is on; `message` is not called otherwise. `log` is a
// handle that may be empty. A line for which there is no memory is lost: it is not worth more than
// what it reports.
template <class Handle, class Message>
void LogIn(DebugZone zone, const Handle& log, Message message) noexcept {
  if (!IsOn(zone) || !log) return;
  try {
    log->Log(message());
  } catch (const std::exception&) {
  }
}

}  // namespace valmere
