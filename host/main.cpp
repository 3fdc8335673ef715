// Stands in for the device manager on a host: loads the driver library, starts it, gives each
// client of a socket a handle of its own, and ends it on a signal. What can fail by the caller's
// fault fails before the driver is started.
#include <sys/resource.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <exception>

#include "host/driver_library.h"
#include "host/listening_socket.h"
#include "host/options.h"
#include "host/server.h"

namespace {

using namespace valmere::host;

// Each client takes a descriptor; the usual soft limit is low only for the sake of select().
void AllowManyDescriptors() {
  rlimit limit{};
  if (getrlimit(RLIMIT_NOFILE, &limit) != 0) return;
  limit.rlim_cur = limit.rlim_max;
  setrlimit(RLIMIT_NOFILE, &limit);
}

int Serve(const Options& options) {
  setenv("VALMERE_ROOT", options.root.c_str(), 1);  // NOLINT(concurrency-mt-unsafe): one thread yet
  ListeningSocket listener(options.socket);
  DriverLibrary driver(options.library);
  {
    Server server(listener, driver);
    driver.Init();
    if (server.Start()) {
      std::printf("valmered: ready on %s\n", listener.path().c_str());
      std::fflush(stdout);
    }
    server.Run();
  }
  driver.Deinit();
  return kExitOk;
}

}  // namespace

int main(int argc, char** argv) {
  std::signal(SIGPIPE, SIG_IGN);
  AllowManyDescriptors();
  try {
    int exit_code = kExitOk;
    const auto options = ReadOptions(argc, argv, exit_code);
    return options ? Serve(*options) : exit_code;
  } catch (const SocketInUse& error) {
    std::fprintf(stderr, "valmered: %s\n", error.what());
    return kExitSocketInUse;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "valmered: %s\n", error.what());
    return kExitFailure;
  }
}
