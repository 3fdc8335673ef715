// The driver library is looked for beside the program, so that an installed tree and a build tree
// both work without a word and without the loader's search path.
#include "host/options.h"

#include <CLI/CLI.hpp>
#include <cstdio>
#include <filesystem>
#include <sstream>
#include <stdexcept>
#include <system_error>

#include "client/socket_path.h"

namespace valmere::host {
namespace {

constexpr const char* kLibraryName = "libvalmere.so";
constexpr const char* kAfterHelp = R"(
Files and environment:
  The socket is $VALMERE_SOCKET, else $XDG_RUNTIME_DIR/valmere/PRN1, else /run/valmere/PRN1.
  The library is looked for in the folder lib beside the program's.

Exit status: 0 ended by SIGTERM or SIGINT, 1 failure, 2 usage, 3 a service answers on the socket.)";

std::string FindLibrary() {
  const std::filesystem::path folder =
      std::filesystem::read_symlink("/proc/self/exe").parent_path();
  for (const char* place : {"../" VALMERE_LIBRARY_FOLDER, "../lib"}) {
    const std::filesystem::path candidate = (folder / place / kLibraryName).lexically_normal();
    if (std::filesystem::exists(candidate)) return candidate.string();
  }
  throw std::runtime_error(std::string("cannot find ") + kLibraryName + " near " + folder.string() +
                           "; name it with --library");
}

std::string MakeRoot(const std::string& root) {
  std::error_code error;
  std::filesystem::create_directories(root, error);
  if (error) throw std::runtime_error(root + ": cannot make the root: " + error.message());
  return std::filesystem::canonical(root).string();
}

// A path without a slash would be searched for in the system's library folders.
std::string AsFile(const std::string& library) {
  return std::filesystem::absolute(library).string();
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
  CLI::App app("Serves the property service's driver library to clients on a Unix socket.",
               "valmered");
  app.set_version_flag("--version", "valmered " VALMERE_VERSION);
  app.footer(kAfterHelp);
  app.add_option("--root", options.root,
                 "The folder that holds the device's files; made if missing")
      ->required()
      ->type_name("DIR");
  app.add_option("--socket", options.socket, "The socket that clients connect to")
      ->type_name("PATH")
      ->capture_default_str();
  app.add_option("--library", options.library, "The driver library")->type_name("PATH");
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    exit_code = ReportUsage(app, error);
    return std::nullopt;
  }
  options.root = MakeRoot(options.root);
  options.library = options.library.empty() ? FindLibrary() : AsFile(options.library);
  return options;
}

}  // namespace valmere::host
