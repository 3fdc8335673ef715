// The lines that were typed, kept for the next time.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace valmere::tools {

// $XDG_STATE_HOME/valmere/history, else ~/.local/state/valmere/history; empty when neither variable
// says where that is.
std::string HistoryPath();

// Purpose: keeps typed lines in a file that only the user can read, one a line.
// Owner: RunInteractive.
// Threads: one. Programs that run at the same time add their lines to the same file.
// Errors: none; what can't be written is forgotten at the end.
class HistoryFile {
 public:
  // With an empty path nothing is kept.
  explicit HistoryFile(std::string path) : path_(std::move(path)) {}

  // The last kMostLines lines, oldest first. A file that has grown far beyond that is cut.
  std::vector<std::string> Load() const;
  // Adds a line at once, so that it outlives a crash.
  void Append(std::string_view line) const;

  static constexpr std::size_t kMostLines = 1000;

 private:
  const std::string path_;
};

}  // namespace valmere::tools
