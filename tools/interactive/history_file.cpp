#include "tools/interactive/history_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <system_error>

#include "tools/process/environment.h"

namespace valmere::tools {
namespace {

// Folders on the way are the user's alone, as the base directory convention asks.
void MakeFolders(const std::filesystem::path& folder) {
  if (folder.empty() || mkdir(folder.c_str(), 0700) == 0 || !folder.has_relative_path()) return;
  std::error_code error;
  if (std::filesystem::exists(folder, error)) return;
  MakeFolders(folder.parent_path());
  mkdir(folder.c_str(), 0700);
}

void Write(const std::string& path, int flags, std::string_view bytes) {
  const int file = open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC | flags, 0600);
  if (file < 0) return;
  // One write, so that lines of programs that run at the same time do not mix.
  [[maybe_unused]] const ssize_t written = write(file, bytes.data(), bytes.size());
  close(file);
}

}  // namespace

std::string HistoryPath() {
  // A relative path there is to be ignored.
  if (const std::string state = Variable("XDG_STATE_HOME"); state.starts_with('/'))
    return state + "/valmere/history";
  if (const std::string home = Variable("HOME"); !home.empty())
    return home + "/.local/state/valmere/history";
  return "";
}

std::vector<std::string> HistoryFile::Load() const {
  std::vector<std::string> lines;
  std::ifstream file(path_);
  for (std::string line; std::getline(file, line);)
    if (!line.empty()) lines.push_back(std::move(line));
  if (lines.size() <= kMostLines) return lines;
  const bool is_long = lines.size() > 2 * kMostLines;
  lines.erase(lines.begin(), lines.end() - static_cast<std::ptrdiff_t>(kMostLines));
  if (is_long) {
    std::string all;
    for (const std::string& line : lines)
      all.append(line).append("\n");
    Write(path_, O_TRUNC, all);
  }
  return lines;
}

void HistoryFile::Append(std::string_view line) const {
  if (path_.empty()) return;
  MakeFolders(std::filesystem::path(path_).parent_path());
  Write(path_, O_APPEND, std::string(line) + "\n");
}

}  // namespace valmere::tools
