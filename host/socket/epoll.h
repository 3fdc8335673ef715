// Calls of the kernel's that wait for many descriptors.
#pragma once

#include <cstdint>
#include <string>

#include "platform/posix/descriptor.h"

namespace valmere::host {

// Both throw std::system_error, which says what they are for.
// An event that any thread raises and a poll sees.
platform::Descriptor MakeWakeEvent(const std::string& purpose);
// One that waits for such an event.
platform::Descriptor MakeEpoll(int wake_event, const std::string& purpose);

// The descriptor is named in the events. Both are for any thread; false when the kernel refuses.
bool AddToEpoll(int epoll, int descriptor, std::uint32_t events) noexcept;
void RemoveFromEpoll(int epoll, int descriptor) noexcept;

}  // namespace valmere::host
