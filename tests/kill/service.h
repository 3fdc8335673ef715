// valmered as a process of its own, which is killed or stopped.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>
#include <vector>

#include "client/client.h"

namespace valmere::test {

// Purpose: one valmered after the other on one root, in a folder of its own.
// Owner: a thread of the test, from whose end no process is left; the folder is the caller's.
// Threads: one, but for socket().
// Errors: std::runtime_error for one that does not start or does not end.
class Service {
 public:
  // `options` are added to those that it takes to run at all.
  explicit Service(const std::string& folder, const std::vector<std::string>& options = {});
  ~Service() { Kill(); }
  Service(const Service&) = delete;
  Service& operator=(const Service&) = delete;

  // Starts it; when this returns it has said that it is ready.
  void Start();
  // Ends it at once, if it runs.
  void Kill();
  void AskToStop();
  // Waits for its end: the exit code, or minus the signal that ended it.
  int AwaitEnd();
  // Throws the root away; the next start makes a fresh one.
  void ForgetRoot();

  client::Client Connect() const;
  std::string socket() const { return folder_ + "/socket"; }
  std::string root() const { return folder_ + "/root"; }
  std::string property_file() const { return root() + "/Store/ValmereProperties.ini"; }
  std::string override_file() const { return root() + "/Store/ValmerePropertiesOverride.ini"; }
  // How often an end was told of as a clean one.
  std::uintmax_t CleanEnds() const;
  // What an unfinished rewrite has left in the root: the first such path, or nothing.
  std::string Leftover() const;
  // Whether the service has kept a copy of a file that it refused.
  bool HasRefusedCopy() const;

 private:
  void Run(int output, int errors) const;
  bool AwaitReady() const;
  // What the running one has said on standard error.
  std::string Errors() const;

  const std::string folder_;
  std::vector<std::string> command_;
  pid_t process_ = -1;
  int output_ = -1;
};

}  // namespace valmere::test
