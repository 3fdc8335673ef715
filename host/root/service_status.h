// The status of the service, for the operator and the service manager.
#pragma once

#include <optional>
#include <string>

#include "host/root/root_folder.h"

namespace valmere::host {

// Purpose: finds out whether settings can be kept, and reports it on standard error and in the
// status that a service manager shows.
// Owner: the program; the root must outlive it.
// Threads: one at a time.
// Errors: none; a service that can't keep settings still serves.
class ServiceStatus {
 public:
  // Checks the root; the driver has not been started yet. `socket` is where it will serve.
  ServiceStatus(const RootFolder& root, const std::string& socket);

  // To be called when clients are served.
  void ReportReady() const;
  // To be called when the root's path leads elsewhere, and when it leads to the root again.
  void ReportRoot(bool in_place);

 private:
  std::string Text() const;

  const RootFolder& root_;
  const std::string serving_;
  const std::optional<std::string> flaw_;  // of the root when the service started
  bool in_place_ = true;
};

}  // namespace valmere::host
