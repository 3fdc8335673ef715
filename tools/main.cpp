// The valmere command.
#include <clocale>
#include <csignal>
#include <string>
#include <vector>

#include "tools/command_line.h"

int main(int argc, char** argv) {
  std::setlocale(LC_CTYPE, "");  // the terminal's characters and their widths
  // A reader that has gone shows as a failed write, so that a command can still clean up.
  std::signal(SIGPIPE, SIG_IGN);
  return valmere::tools::Start(std::vector<std::string>(argv + 1, argv + argc));
}
