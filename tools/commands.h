// What each subcommand does over a connection.
#pragma once

#include <chrono>
#include <optional>
#include <vector>

#include "client/client.h"
#include "tools/exit_code.h"
#include "tools/options.h"
#include "tools/output.h"
#include "tools/publication.h"

namespace valmere::tools {

// Each runs one subcommand to its end; a Failure when it did not do what it was asked for.
std::optional<Failure> List(client::Client& client, client::Deadline deadline, Output& out);
std::optional<Failure> Get(client::Client& client, const Options& options,
                           client::Deadline deadline, Output& out);
std::optional<Failure> Set(client::Client& client, const Options& options,
                           client::Deadline deadline);
// Runs until it is interrupted, which is its proper end, or the connection is lost. `timeout` is
// for each exchange with the service.
std::optional<Failure> Publish(client::Client& client, std::vector<Published> publication,
                               std::chrono::milliseconds timeout, Output& out);

// Prints changes until there were as many as asked for, or until it is interrupted; either is its
// proper end.
std::optional<Failure> Watch(client::Client& client, const Options& options,
                             client::Deadline deadline, Output& out);

// Connects and runs the subcommand that the options name; the exit code. Failures are reported.
int Run(const Options& options, Output& out);

}  // namespace valmere::tools
