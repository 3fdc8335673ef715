// Waiting until values are on the disk.
#pragma once

#include <chrono>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "client/client.h"
#include "tools/process/exit_code.h"
#include "tools/service/service_clients.h"
#include "tools/service/service_file.h"

namespace valmere::tools {

// Why a value can't be in a property file; nothing when it can.
std::optional<Failure> CheckIsStorable(const std::string& name, const std::string& value);

// Purpose: tells when the service's property file holds the values that properties have, by looking
//   at the file, and brings it to the disk. Counts are only rewrites that come after the beginning:
//   before them the file may hold a value that a line on its way is about to change.
// Owner: a command.
// Threads: one.
// Errors: failures; a time-out names what the file does not hold, and the file.
class Storing {
 public:
  Storing(const ServiceClients& clients, client::Client& client, ServiceFile file,
          client::Deadline deadline);

  // Before the request that is to be waited for; all are stored properties of the service.
  std::optional<Failure> Begin(const std::vector<client::Property>& properties);
  // Asks the service for a line of each of its properties.
  std::optional<Failure> RequestLines();
  // Returns when, of each, the file holds a value that the property has had since the request, or a
  // later one. Requests lines where none comes by itself, which is so where nothing has changed.
  std::optional<Failure> Await();

 private:
  // A property whose value is not in the file yet.
  struct Wanted {
    client::Property property;
    std::set<std::string> reported;     // since the request
    std::optional<std::string> stored;  // what the file held last
    int changes = 0;                    // of that, as far as they were seen
  };

  std::optional<Failure> Ask();
  std::optional<Failure> LookAtFile();
  void Compare(Wanted& wanted) const;
  bool IsWrittenInPlace() const;
  std::optional<Failure> AwaitQuiet();
  std::optional<Failure> Finish();
  std::optional<Failure> Pause(std::chrono::milliseconds time);
  bool IsRewritten() const;
  Failure TimeOut() const;

  const ServiceClients& clients_;
  client::Client& client_;
  const ServiceFile file_;
  const client::Deadline deadline_;
  FileLook before_;  // when it began; held open, so that no later file gets its number
  FileLook look_;
  std::vector<Wanted> wanted_;
  bool requested_lines_ = false;
};

}  // namespace valmere::tools
