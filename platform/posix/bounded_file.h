// A file that grows no further than it may.
#pragma once

#include <sys/stat.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <utility>

#include "platform/posix/folder.h"
#include "platform/posix/host_file.h"

namespace valmere::platform {

// Purpose: is appended to until it would become longer than `most` bytes; it goes on under its name
//   and ".1" then, in the place of an older one, and a new one with its mode and owner begins.
// Owner, threads: as File.
// Errors: as HostFile. What is longer by itself, and what comes while no new one can be begun, is
//   not written.
class BoundedFile final : public HostFile {
 public:
  BoundedFile(WidePathView path, std::shared_ptr<WriteLedger> ledger, std::uint64_t most)
      : HostFile(path, std::move(ledger)), most_(most) {}

  // Takes the open file over, once, and the place that it is at. False when its size can't be had.
  bool Begin(Place place, Descriptor file);

  std::size_t Write(const void* buffer, std::size_t length) override;

 private:
  bool BeginAnew();
  bool IsStillThere(const struct stat& file) const;
  bool PutAside();

  const std::uint64_t most_;
  Place place_;
  std::string older_name_;
  std::uint64_t size_ = 0;
};

}  // namespace valmere::platform
