// Writing a property file: one line is replaced or added, everything else stays.
#pragma once

#include <functional>
#include <string>
#include <string_view>

#include "platform/files.h"

namespace valmere {

// One line to be written.
struct WriteRequest {
  std::string prefix;       // the left side; the first line that begins with it is replaced
  std::string line;         // left side, "=", value; without "\n"
  platform::WidePath path;  // the file

  friend bool operator==(const WriteRequest&, const WriteRequest&) = default;
};

WriteRequest MakeWriteRequest(std::string_view left_side, std::string_view value,
                              platform::WidePathView path);

// How a rewrite ended.
enum class RewriteResult {
  kWritten,
  kShortRead,  // the old body didn't come whole, or its size; the file is as it was
  kTooLong,    // the file would be too long to be read again; it is as it was
  kNotOpened,  // it is there but can't be opened, or not for writing; the file is as it was
  // After these three the file has no valid checksum where the system writes it in place; on other
  // systems it is as it was.
  kBodyTorn,     // the lines didn't all reach the file
  kTrailerTorn,  // the checksum didn't all reach the file
  kOvertaken,    // it may not write any more
  kNotReplaced,  // all was written, but could not take the place of the old file, which stays
};

// True when the requests that still wait should be left for later: the same error would probably
// hit them too.
bool StopsDraining(RewriteResult result) noexcept;

// False when another try would fail in the same way, whatever the state of the disk.
bool MayGoBetter(RewriteResult result) noexcept;

// The result as the end of a sentence for the log: "it can't be opened".
std::string_view Describe(RewriteResult result) noexcept;

// Asked before the file is emptied and before its checksum is written: a thread that returns late
// from a file call must not write over what another has written since.
using MayWrite = std::function<bool()>;

// Rewrites the file with the request's line in place of the first one that begins with its prefix,
// or with the line at the end if no line does. The old checksum isn't checked: a file with a wrong
// one is repaired. A last line without its "\n" is given one. The new checksum is written last, so
// a rewrite that was interrupted leaves a file that is refused whole, or the old one where the
// system can keep it. std::bad_alloc, while the file is still as it was.
RewriteResult RewriteLine(platform::FileSystem& files, const WriteRequest& request,
                          const MayWrite& may_write = nullptr);

}  // namespace valmere
