// The valmere command.
#include <cstdio>
#include <exception>

#include "tools/commands.h"
#include "tools/exit_code.h"
#include "tools/options.h"
#include "tools/output.h"

int main(int argc, char** argv) {
  try {
    int exit_code = valmere::tools::kExitOk;
    const auto options = valmere::tools::ReadOptions(argc, argv, exit_code);
    if (!options) return exit_code;
    valmere::tools::Output out(stdout);
    return valmere::tools::Run(*options, out);
  } catch (const std::exception& error) {
    valmere::tools::Complain(error.what());
    return valmere::tools::kExitRefused;
  }
}
