// How the service stands, for the operator and the service manager.
#pragma once

#include <optional>
#include <string>

#include "host/root/root_folder.h"

namespace valmere::host {

// Purpose: finds out whether settings can be kept, and says so on standard error and in the status
// that a service manager shows.
// Owner: the program; the root must outlive it.
// Threads: one at a time.
// Errors: none; a service that can't keep settings serves all the same.
class Standing {
 public:
  // Tries the root; the driver has not been started yet. `socket` is where it will serve.
  Standing(const RootFolder& root, const std::string& socket);

  // Clients are served from now on.
  void TellReady() const;
  // The root's path leads elsewhere, or to the root again.
  void TellRoot(bool in_place);

 private:
  std::string Status() const;

  const RootFolder& root_;
  const std::string serving_;
  const std::optional<std::string> flaw_;  // of the root when the service started
  bool in_place_ = true;
};

}  // namespace valmere::host
