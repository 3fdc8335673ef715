// The service manager that may have started valmered: what it hands over, what is reported to it.
#pragma once

#include <optional>
#include <string>

namespace valmere::host {

// The listening socket that the service manager passed on, or nothing when it passed none. Throws
// std::runtime_error when what it passed is not one listening Unix stream socket. To be called
// once, before the first thread is started: it takes the variables out of the environment.
std::optional<int> InheritedSocket();

// Each reports to the service manager, if there is one. A status is a line for people.
void NotifyReady(const std::string& status);
void NotifyStatus(const std::string& status);
void NotifyStopping();

}  // namespace valmere::host
