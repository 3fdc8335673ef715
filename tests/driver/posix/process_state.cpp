// By /proc.
#include "tests/driver/process_state.h"

#include <dirent.h>
#include <malloc.h>
#include <unistd.h>

#include <fstream>
#include <set>
#include <sstream>
#include <string>

namespace valmere::test {
namespace {

std::set<std::string> NamesIn(const std::string& folder) {
  std::set<std::string> names;
  DIR* const entries = opendir(folder.c_str());
  if (entries == nullptr) return names;
  while (const dirent* entry = readdir(entries)) {
    const std::string name = entry->d_name;
    if (name != "." && name != "..") names.insert(name);
  }
  closedir(entries);
  return names;
}

}  // namespace

std::size_t ThreadCount() {
  return NamesIn("/proc/self/task").size();
}

// The descriptor that lists them is among them each time.
std::size_t HandleCount() {
  return NamesIn("/proc/self/fd").size();
}

bool Sleeps(std::uint32_t thread) {
  std::ifstream file("/proc/self/task/" + std::to_string(thread) + "/stat");
  std::string stat;
  std::getline(file, stat);
  const std::size_t name_end = stat.rfind(')');
  return name_end != std::string::npos && stat.compare(name_end, 3, ") S") == 0;
}

std::size_t ResidentBytes() {
  std::ifstream file("/proc/self/statm");
  std::size_t total = 0;
  std::size_t resident = 0;
  file >> total >> resident;
  return resident * static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
}

std::size_t HeapBytes() {
  return mallinfo2().uordblks;
}

std::size_t ListeningSocketCount() {
  std::set<std::string> own;
  for (const std::string& name : NamesIn("/proc/self/fd")) {
    char target[64] = {};
    if (readlink(("/proc/self/fd/" + name).c_str(), target, sizeof target - 1) < 0) continue;
    const std::string text = target;
    if (text.rfind("socket:[", 0) == 0) own.insert(text.substr(8, text.size() - 9));
  }
  std::set<std::string> listening;
  for (const char* table : {"/proc/self/net/tcp", "/proc/self/net/tcp6"}) {
    std::ifstream file(table);
    std::string line;
    while (std::getline(file, line)) {
      std::istringstream fields(line);
      std::string slot, local, remote, state, queues, timer, retries, user, timeout, inode;
      fields >> slot >> local >> remote >> state >> queues >> timer >> retries >> user >> timeout >>
          inode;
      if (state == "0A" && own.count(inode) != 0) listening.insert(inode);
    }
  }
  return listening.size();
}

}  // namespace valmere::test
