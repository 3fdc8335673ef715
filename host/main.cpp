// Does on a host what the device manager does on a device: starts the driver and ends it, on a
// signal. Its service serves the clients of a socket besides. What can fail by the caller's fault
// fails before the driver is started.
#include <fcntl.h>
#include <malloc.h>
#include <poll.h>
#include <sys/resource.h>
#include <unistd.h>

#include <csignal>
#include <cstddef>
#include <cstdlib>
#include <exception>
#include <optional>
#include <string>
#include <vector>

#include "host/driver/driver.h"
#include "host/options.h"
#include "host/root/refused_file.h"
#include "host/root/root_folder.h"
#include "host/root/root_watch.h"
#include "host/root/service_status.h"
#include "host/root/skeleton.h"
#include "host/server.h"
#include "host/socket/internet_socket.h"
#include "host/socket/listening_socket.h"
#include "host/socket/peer.h"
#include "host/system/report.h"
#include "host/system/service_manager.h"
#include "host/values/kept_properties.h"
#include "host/values/property_loader.h"
#include "host/values/stored_values.h"
#include "platform/files.h"
#include "platform/posix/descriptor.h"

namespace {

using namespace valmere::host;

// Each client takes a descriptor; the usual soft limit is low only for the sake of select().
void AllowManyDescriptors(std::size_t clients) {
  constexpr rlim_t kOwn = 64;  // the files of the driver and of the loop
  rlimit limit{};
  if (getrlimit(RLIMIT_NOFILE, &limit) != 0) return;
  limit.rlim_cur = limit.rlim_max;
  setrlimit(RLIMIT_NOFILE, &limit);
  if (limit.rlim_max < clients + kOwn)
    Report("only " + std::to_string(limit.rlim_max) + " descriptors may be open, too few for " +
           std::to_string(clients) + " clients");
}

// For the driver, which reads it when it is started.
void SetDriverEnvironment(const RootFolder& root, const Options& options) {
  // NOLINTBEGIN(concurrency-mt-unsafe): one thread yet
  setenv("VALMERE_ROOT", root.path().c_str(), 1);
  setenv("VALMERE_MAX_LOG", std::to_string(options.log_bytes).c_str(), 1);
  // NOLINTEND(concurrency-mt-unsafe)
}

// The program at the other end may not read; a pipe that has room has room for a line.
void Print(const std::string& text) {
  const std::string line = "valmered: " + text + "\n";
  pollfd room{STDOUT_FILENO, POLLOUT, 0};
  if (poll(&room, 1, 0) != 1 || (room.revents & POLLOUT) == 0) return;
  if (write(STDOUT_FILENO, line.data(), line.size()) < 0) Report("cannot say that it " + text);
}

// Where clients connect over TCP, or nothing.
valmere::platform::Descriptor ListenOnTcp(const std::string& where) {
  if (where.empty()) return {};
  valmere::platform::Descriptor socket = ListenOnInternet(where);
  const std::string address = InternetAddressOf(socket.get());
  if (!IsLoopback(socket.get()))
    Report("clients of any machine that reaches " + address +
           " may read and set every property: nothing checks who they are");
  Print("listens on " + address);
  return socket;
}

std::vector<int> SocketsOf(const ListeningSocket& listener,
                           const valmere::platform::Descriptor& tcp) {
  std::vector<int> sockets{listener.descriptor()};
  if (tcp.valid()) sockets.push_back(tcp.get());
  return sockets;
}

int Serve(const Options& options) {
  const std::optional<int> inherited = InheritedSocket();
  AllowManyDescriptors(options.limits.clients);
  const RootFolder root(options.root);
  if (options.init_root) CreateSkeleton(root);
  SetDriverEnvironment(root, options);
  ListeningSocket listener =
      inherited ? ListeningSocket(*inherited) : ListeningSocket(options.socket, root);
  valmere::platform::Descriptor tcp = ListenOnTcp(options.listen_tcp);
  root.Enter();
  Driver driver;
  const bool drains = options.limits.drain.count() > 0;
  KeepRefusedFile(root);
  StoredValues stored(driver, root, valmere::platform::MakeDeviceFileSystem());
  Server server(driver, options.limits,
                drains ? [&stored](const KeptProperties& files) { stored.PreviewLoad(files); }
                       : PropertyLoader::BeforeLoad());
  ServiceStatus status(root, listener.path());
  const RootWatch watch(server.loop(), root, [&](bool in_place) { status.ReportRoot(in_place); });
  stored.PreviewStart();
  driver.Init();
  if (drains) stored.ReadInitialValues();
  stored.WaitForOverride([&server] { return server.HasToEnd(); });
  if (server.Start(SocketsOf(listener, tcp), [&listener, &tcp] {
        listener.StopListening();
        tcp = {};
      })) {
    Print("ready on " + listener.path());
    status.ReportReady();
  }
  const auto end_by = server.Run();
  if (drains) stored.WaitUntilStored(end_by);
  // The clients have gone. The loop stays until the driver's threads have, so that more signals are
  // taken and the loop's descriptors are not theirs under another name.
  driver.Deinit();
  return kExitOk;
}

// What is opened later must not be taken for one of these.
void OpenStandardStreams() {
  for (int stream = STDIN_FILENO; stream <= STDERR_FILENO; ++stream)
    if (fcntl(stream, F_GETFD) < 0 && open("/dev/null", O_RDWR) != stream) _exit(kExitFailure);
}

// Each arena of the C library keeps what its threads have freed last, and there are up to eight of
// them for a core. A few are enough: little is allocated on the road of a request. Both thresholds
// would grow by themselves with the blocks that are freed, and what an arena keeps with them.
void KeepLittleMemory() {
  // NOLINTBEGIN(concurrency-mt-unsafe): one thread yet
  mallopt(M_ARENA_MAX, 4);
  mallopt(M_MMAP_THRESHOLD, 1 << 20);
  mallopt(M_TRIM_THRESHOLD, 256 << 10);
  // NOLINTEND(concurrency-mt-unsafe)
}

// A pipe without a reader and a file that may not grow show as failed writes; there is nothing to
// load again yet.
void IgnoreSignals() {
  for (const int number : {SIGPIPE, SIGXFSZ, SIGHUP})
    std::signal(number, SIG_IGN);
}

}  // namespace

int main(int argc, char** argv) {
  OpenStandardStreams();
  KeepLittleMemory();
  IgnoreSignals();
  try {
    int exit_code = kExitOk;
    const auto options = ReadOptions(argc, argv, exit_code);
    return options ? Serve(*options) : exit_code;
  } catch (const SocketInUse& error) {
    Report(error.what());
    return kExitSocketInUse;
  } catch (const RootInUse& error) {
    Report(error.what());
    return kExitRootInUse;
  } catch (const RootUnusable& error) {
    Report(error.what());
    return kExitRootUnusable;
  } catch (const std::exception& error) {
    Report(error.what());
    return kExitFailure;
  }
}
