#include "bench/peers/peer.h"

namespace valmere::bench {

void Peer::Start() {
  folder_.emplace();
  Launch(*folder_);
  AwaitAnswer([this] { Connect()->Get(); });
}

void Peer::End() {
  programs_.clear();
  folder_.reset();
}

std::vector<pid_t> Peer::Processes() const {
  std::vector<pid_t> processes;
  for (const Program& program : programs_)
    processes.push_back(program.process());
  return WithChildren(std::move(processes));
}

void Peer::Run(const std::vector<std::string>& words, int handed) {
  programs_.emplace_back(words, handed);
}

}  // namespace valmere::bench
