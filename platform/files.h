// Files and devices by wide path. Everything above takes a FileSystem at construction, so that
// tests can hand in one that reads short, refuses to open or tears a write.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>

#include "platform/wide_path.h"

namespace valmere::platform {

// How a file is opened; combined with |. Always binary: no byte is translated. What neither reads
// nor writes can't be opened, nor can what is to be truncated but not written.
enum class OpenFlags : std::uint32_t {
  kRead = 1,
  kWrite = 2,   // creates the file when it is missing (unless only kRead is given with it)
  kAppend = 4,  // writes, and every write goes to the end
  // The file starts empty. Where the system can do so, what is written takes the place of the old
  // file when it is complete, and the old one stays when it never is.
  kTruncate = 8,
  kAtEnd = 16,  // the first position is the end
  // With kAppend: where the system bounds such files, one that has become too long goes on under
  // its name and ".1", in the place of an older one, and a new one begins.
  kBounded = 32,
};
constexpr OpenFlags operator|(OpenFlags a, OpenFlags b) {
  return static_cast<OpenFlags>(static_cast<std::uint32_t>(a) | static_cast<std::uint32_t>(b));
}
constexpr bool Has(OpenFlags set, OpenFlags flag) {
  return (static_cast<std::uint32_t>(set) & static_cast<std::uint32_t>(flag)) != 0;
}

// An open file or device, owned by its opener, used by one thread at a time; closed by destruction.
class File {
 public:
  virtual ~File() = default;
  // Reads `length` bytes from the current position; the count, smaller only at the end or on an
  // error.
  virtual std::size_t Read(void* buffer, std::size_t length) = 0;
  // The number of bytes that reached the file; fewer than `length` on an error.
  virtual std::size_t Write(const void* buffer, std::size_t length) = 0;
  // The file's size in bytes, which is 0 for a device. Nothing when it can't be read: such a file
  // must not be taken for an empty one.
  virtual std::optional<std::uint64_t> Size() = 0;
  // Called when all is written; no write may follow. A file that was opened with kTruncate takes
  // effect now at the latest. False when something could not be written, or another process has
  // replaced the file meanwhile. Where the system can, the old file has stayed then.
  virtual bool Complete() { return true; }
};

// Where paths lead. Any thread may call; each File that it gives stands alone.
class FileSystem {
 public:
  virtual ~FileSystem() = default;
  // Null when the file can't be opened; a folder can't. A name that ends in ":" ("PRN1:") is a
  // device, which this never creates. Folders are not created either.
  virtual std::unique_ptr<File> Open(WidePathView path, OpenFlags flags) = 0;
  // True for a file and for a folder; also where the system can't tell for lack of memory or
  // descriptors: else the caller would take a file for missing and write a new one.
  virtual bool Exists(WidePathView path) = 0;
  // True when the file is gone because of this call; folders stay.
  virtual bool Remove(WidePathView path) = 0;
  // Syncs: brings the files that were completed since the last call to the disk, where the system
  // leaves that to programs. False when that failed for a file: the next call tries again.
  virtual bool Sync() { return true; }
};

// In bytes.
inline constexpr std::uint64_t kDefaultMaxLog = std::uint64_t{16} << 20;

// The device's files. Where the operating system has no such tree of its own they lie under one
// folder, the device root: the environment variable VALMERE_ROOT as it stands at this call, else
// /var/lib/valmere. No path leads out of the root: ".." stops there, and symbolic links below it
// are not followed. Names that begin with ".valmere-" are the system's own and lead nowhere. A
// bounded file has no more than VALMERE_MAX_LOG bytes there (kDefaultMaxLog when that is not set or
// no number). A file that can't be written is reported on standard error there, once.
std::shared_ptr<FileSystem> MakeDeviceFileSystem();

}  // namespace valmere::platform
