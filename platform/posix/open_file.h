// How a file of the host is opened.
#pragma once

#include <cstdint>
#include <memory>

#include "platform/files.h"
#include "platform/posix/folder.h"
#include "platform/posix/write_ledger.h"
#include "platform/wide_path.h"

namespace valmere::platform {

// What a file needs to know besides its place.
struct FileMatters {
  WidePathView path;  // as it was asked for
  std::shared_ptr<WriteLedger> ledger;
  std::uint64_t max_log;  // of a bounded file, in bytes
};

// Null when it can't be opened; errno has the cause then, or 0 where the flags make no sense.
std::unique_ptr<File> OpenFile(Place place, FileMatters matters, OpenFlags flags);

}  // namespace valmere::platform
