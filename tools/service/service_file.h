// The property file of a running service, seen from outside.
#pragma once

#include <sys/stat.h>

#include <cstddef>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "platform/posix/descriptor.h"
#include "tools/process/exit_code.h"

namespace valmere::tools {

// Two rewrites of a file have different ones, unless they come within one tick of the kernel's
// clock.
struct FileVersion {
  dev_t device = 0;
  ino_t number = 0;
  off_t size = 0;
  timespec written{};
  timespec changed{};

  bool operator==(const FileVersion& other) const;
  // True when a rewrite that comes now could not be told from this one.
  bool IsYoung() const;
};

// The file as it was at one moment.
struct FileLook {
  platform::Descriptor folder;
  platform::Descriptor file;           // empty when there is none, or none that can be opened now
  std::optional<FileVersion> version;  // nothing without a file
  bool sound = false;                  // the CRC is good; without it the next two are empty
  // By the lines' keys. Of two lines with one key the later one counts.
  std::map<std::string, std::string, std::less<>> values;
};

// Purpose: looks at the property file below the service's root, which may be replaced at any time,
//   and brings it to the disk. No path leads out of the root, and below it no link is followed.
// Owner: a command.
// Threads: one.
// Errors: values that say how the service's root can be named.
class ServiceFile {
 public:
  // `path` is what the service calls the file. The root is `root`; without one, that of the
  // environment, of the process that listens at `socket`, or the usual one.
  static std::variant<ServiceFile, Failure> Find(const std::optional<std::string>& root,
                                                 const std::string& socket, std::string_view path);

  // A file that is missing, torn or just being replaced is not sound, and no failure.
  std::variant<FileLook, Failure> Look() const;
  // Brings what was looked at to the disk: the file, and its name in the folder.
  std::optional<Failure> Sync(const FileLook& look) const;
  // True while the name leads to what was looked at.
  bool IsCurrent(const FileLook& look) const;

  // As the desk knows it.
  const std::string& name() const { return name_; }

 private:
  ServiceFile(std::string root, std::vector<std::string> path);
  platform::Descriptor OpenFolder() const;
  Failure Unreadable(int error) const;

  std::string root_;
  std::vector<std::string> path_;  // the file's name is the last
  std::string name_;
};

}  // namespace valmere::tools
