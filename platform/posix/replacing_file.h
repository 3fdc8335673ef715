// A file that takes the place of another one when it is whole.
#pragma once

#include <sys/types.h>

#include <memory>
#include <string>
#include <utility>

#include "platform/posix/folder.h"
#include "platform/posix/host_file.h"

namespace valmere::platform {

// Purpose: is written beside the old file, under a name of its own in the same folder, and takes its
//   name when it is complete; until then, and whenever anything fails, the old file stays. Mode and
//   owner are those of the old one.
// Owner, threads: as File.
// Errors: as HostFile; also where the old file has been replaced by somebody else since this one was
//   begun: what it was made from is out of date then.
class ReplacingFile final : public HostFile {
 public:
  // The old file, as it was opened for writing.
  struct Old {
    Descriptor file;  // empty when there was none
    dev_t device = 0;
    ino_t number = 0;
    mode_t mode = 0;
    uid_t user = 0;
    gid_t group = 0;
    bool is_mount_point = false;
  };

  using HostFile::HostFile;
  ~ReplacingFile() override;

  // What became of the beginning.
  enum class Begun {
    kYes,
    kNo,           // for the cause that errno has
    kNotPossible,  // it can only be written in place
  };
  // Makes the new file, once, for the one at `place`. Both are taken over if it succeeds.
  Begun Begin(Place& place, Old& old, bool readable);

  bool Complete() override;

 private:
  bool MakeBeside(const Descriptor& folder, bool readable, mode_t mode);
  bool OldIsStillThere() const;

  std::string side_name_;  // empty when there is no such file any more
  Place place_;
  Old old_;
};

// Removes from the folder what such files of processes that have been killed have left there.
void ClearLeftovers(const Descriptor& folder) noexcept;

}  // namespace valmere::platform
