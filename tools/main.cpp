// The valmere command.
#include <malloc.h>

#include <clocale>
#include <csignal>
#include <string>
#include <vector>

#include "tools/commands/command_line.h"

namespace {

// A command lives for one answer, which may be of megabytes. Memory that goes back to the kernel on
// the way has to be mapped and cleared again a moment later.
void KeepFreedMemory() {
  constexpr int kKept = 32 << 20;
  mallopt(M_MMAP_THRESHOLD, kKept);
  mallopt(M_TRIM_THRESHOLD, kKept);
}

}  // namespace

int main(int argc, char** argv) {
  KeepFreedMemory();
  std::setlocale(LC_CTYPE, "");  // the terminal's characters and their widths
  // A reader that has gone, or a file that may not grow, shows as a failed write, so that a command
  // can still clean up.
  std::signal(SIGPIPE, SIG_IGN);
  std::signal(SIGXFSZ, SIG_IGN);
  return valmere::tools::Start(std::vector<std::string>(argv + 1, argv + argc));
}
