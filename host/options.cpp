#include "host/options.h"

#include <CLI/CLI.hpp>

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <map>
#include <sstream>
#include <string>

#include "client/socket_path.h"

namespace valmere::host {
namespace {

constexpr double kShortestSeconds = 0.001;
constexpr double kLongestSeconds = 86400;
constexpr std::uint64_t kMostUnreadBytes = std::uint64_t{1} << 40;
constexpr std::uint64_t kLeastLogBytes = std::uint64_t{64} << 10;
constexpr std::uint64_t kMostLogBytes = std::uint64_t{1} << 40;
constexpr const char* kAfterHelp = R"(
Limits:
  A client over --max-clients or --max-clients-per-process is accepted and closed at once. One that
  exceeds another limit is closed, and a line on standard error says which client and why. What the
  kernel's socket buffer holds does not count as unread. An answer is kept however long it is; the
  next request is read when the client has taken it. Numbers of bytes may end in K, M or G, times in
  s or ms; without either they are seconds.

Signals:
  SIGTERM and SIGINT end valmered: it takes no more requests, and waits up to --drain-timeout until
  those that it has are answered and the property file has what they have set. SIGHUP has the
  service load its property file again.

Files and environment:
  The socket is $VALMERE_SOCKET, else $XDG_RUNTIME_DIR/valmere/PRN1, else /run/valmere/PRN1. One
  that a service manager passes on (LISTEN_FDS, LISTEN_PID) is served instead of it.
  With NOTIFY_SOCKET in the environment the service manager is told READY=1, STOPPING=1, and a
  status that says where clients are served and why settings can't be kept, if they can't.

Exit status:
  0 ended by SIGTERM or SIGINT, 1 failure, 2 usage, 3 a service answers on the socket, 4 another
  valmered serves the root, 5 the root can't be used.)";

std::chrono::milliseconds Milliseconds(double seconds) {
  return std::chrono::ceil<std::chrono::milliseconds>(std::chrono::duration<double>(seconds));
}

double InSeconds(std::chrono::milliseconds duration) {
  return std::chrono::duration<double>(duration).count();
}

// The values go through `parsed` because the options' own types know no text form.
struct ParsedLimits {
  std::uint64_t clients = Limits{}.clients;
  std::uint64_t clients_per_process = Limits{}.clients_per_process;
  std::uint64_t client_memory = Limits{}.client_memory;
  std::uint64_t unread_bytes = Limits{}.unread_bytes;
  double frame = InSeconds(Limits{}.frame);
  double unread = InSeconds(Limits{}.unread);
  double drain = InSeconds(Limits{}.drain);
};

// Takes texts as "10", "2s" and "500ms". What is no number is no time either, so "nan" does not get
// to the check of the range, which would accept it.
void AddTime(CLI::App& app, const char* name, double& seconds, double least, const char* meaning) {
  const std::map<std::string, double> units{{"s", 1}, {"ms", 0.001}};
  app.add_option(name, seconds, meaning)
      ->type_name("TIME")
      ->transform(CLI::AsNumberWithUnit(units).description(""))
      ->check(CLI::Range(least, kLongestSeconds).description(""))
      ->capture_default_str();
}

void AddLimits(CLI::App& app, ParsedLimits& parsed) {
  app.add_option("--max-clients", parsed.clients, "Clients that are served at once")
      ->type_name("N")
      ->check(CLI::Range(std::uint64_t{1}, std::uint64_t{1} << 20))
      ->capture_default_str();
  app.add_option("--max-clients-per-process", parsed.clients_per_process,
                 "Clients of one process that are served at once; over TCP they are not counted")
      ->type_name("N")
      ->check(CLI::Range(std::uint64_t{1}, std::uint64_t{1} << 20))
      ->capture_default_str();
  app.add_option("--max-client-memory", parsed.client_memory,
                 "Bytes that are kept for a client: what it has published and subscribed to, and "
                 "changes that wait for it")
      ->type_name("BYTES")
      ->transform(CLI::AsSizeValue(false))
      ->check(CLI::Range(std::uint64_t{1}, kMostUnreadBytes).description(""))
      ->default_str("64MiB");
  AddTime(app, "--frame-timeout", parsed.frame, kShortestSeconds,
          "Time that a client may take over the rest of a frame it began");
  app.add_option("--max-unread", parsed.unread_bytes, "Bytes that a client may leave unread")
      ->type_name("BYTES")
      ->transform(CLI::AsSizeValue(false))
      ->check(CLI::Range(std::uint64_t{0}, kMostUnreadBytes).description(""))
      ->capture_default_str();
  AddTime(app, "--unread-timeout", parsed.unread, kShortestSeconds,
          "Time that a client may leave any byte unread");
  AddTime(app, "--drain-timeout", parsed.drain, 0,
          "Time that the end may wait for answers and for the property file; 0 drops both");
}

void AddLog(CLI::App& app, Options& options) {
  app.add_option("--max-log", options.log_bytes,
                 "Bytes of the service's log file; as many are kept of what was there before")
      ->type_name("BYTES")
      ->transform(CLI::AsSizeValue(false))
      ->check(CLI::Range(kLeastLogBytes, kMostLogBytes).description(""))
      ->default_str("16MiB");
}

Limits LimitsOf(const ParsedLimits& parsed) {
  Limits limits;
  limits.clients = parsed.clients;
  limits.clients_per_process = parsed.clients_per_process;
  limits.frame = Milliseconds(parsed.frame);
  limits.unread_bytes = parsed.unread_bytes;
  limits.unread = Milliseconds(parsed.unread);
  limits.client_memory = parsed.client_memory;
  limits.drain = Milliseconds(parsed.drain);
  return limits;
}

int ReportUsage(const CLI::App& app, const CLI::ParseError& error) {
  std::ostringstream out;
  std::ostringstream problem;
  const int code = app.exit(error, out, problem);
  std::fputs(out.str().c_str(), stdout);
  if (code == 0) return kExitOk;
  std::fprintf(stderr, "valmered: %s\n", error.what());
  std::fputs("valmered: see valmered --help\n", stderr);
  return kExitUsage;
}

}  // namespace

std::optional<Options> ReadOptions(int argc, const char* const* argv, int& exit_code) {
  Options options;
  options.socket = client::DefaultSocketPath();
  CLI::App app("Runs the property service for clients on a Unix socket.", "valmered");
  app.set_version_flag("--version", "valmered " VALMERE_VERSION);
  app.footer(kAfterHelp);
  app.add_option("--root", options.root,
                 "The folder that holds the device's files; made if missing")
      ->required()
      ->type_name("DIR");
  app.add_flag("--init-root", options.init_root,
               "Give an empty root the version files and folders of a fresh device");
  app.add_option("--socket", options.socket, "The socket that clients connect to")
      ->type_name("PATH")
      ->capture_default_str();
  app.add_option(
         "--listen-tcp", options.listen_tcp,
         "Where clients connect over TCP as well; without an address on the loopback. There "
         "is no check of who connects")
      ->type_name("[ADDRESS:]PORT");
  ParsedLimits limits;
  AddLimits(app, limits);
  AddLog(app, options);
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    exit_code = ReportUsage(app, error);
    return std::nullopt;
  }
  options.limits = LimitsOf(limits);
  return options;
}

}  // namespace valmere::host
