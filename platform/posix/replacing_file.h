// A file that takes the place of another one when it is whole.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <optional>
#include <string>

#include "platform/posix/folder.h"
#include "platform/posix/host_file.h"

namespace valmere::platform {

// Purpose: is written beside the old file, under a name of its own in the same folder, and takes
//   its name when it is complete; until then, and whenever anything fails, the old file stays.
//   Rights and owner are those of the old one.
// Owner, threads: as File.
// Errors: as HostFile; also, without a report, when another process has replaced or changed the old
//   file since this one was begun.
class ReplacingFile final : public HostFile {
 public:
  using HostFile::HostFile;
  ~ReplacingFile() override;

  // The result of Begin.
  enum class Begun {
    kYes,
    kNo,           // errno has the cause
    kNotPossible,  // it can only be written in place
  };
  // Makes the new file, once, for the one at `place`, which is taken over if it succeeds.
  Begun Begin(Place& place, bool readable);

  bool Complete() override;

 private:
  // What identifies the old file, and what the new one takes over from it.
  struct Old {
    bool exists = false;
    std::uint32_t device[2] = {};
    std::uint64_t number = 0;
    std::int64_t changed[2] = {};  // seconds and nanoseconds: a number may be given again
    mode_t mode = 0;
    uid_t user = 0;
    gid_t group = 0;
    bool is_mount_point = false;

    bool IsSameFile(const Old& other) const;
  };

  // Nothing when what is there is no file or can't be looked at.
  static std::optional<Old> LookAt(const Place& place);
  static mode_t FirstMode(const Old& old);
  static bool CopyOwnerAndMode(const Descriptor& file, const Old& old);
  bool MakeBeside(const Descriptor& folder, bool readable, mode_t mode);

  std::string side_name_;  // empty when there is no such file any more
  Place place_;
  Old old_;
};

// Removes from the folder the files that killed processes have left there.
void ClearLeftovers(const Descriptor& folder) noexcept;

}  // namespace valmere::platform
