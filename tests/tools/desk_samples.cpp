#include "tests/tools/desk_samples.h"

namespace valmere::test {

std::string CommandProgram() {
  return VALMERE;
}

std::string ServiceProgram() {
  return VALMERED;
}

std::unique_ptr<Subprocess> StartCommand(const std::vector<std::string>& arguments,
                                         const std::vector<std::string>& environment) {
  std::vector<std::string> command{CommandProgram(), "--timeout", "60"};
  command.insert(command.end(), arguments.begin(), arguments.end());
  return std::make_unique<Subprocess>(command, environment);
}

Outcome Finish(Subprocess& process) {
  const int code = process.Wait();
  return {code, process.output(), process.errors()};
}

}  // namespace valmere::test
