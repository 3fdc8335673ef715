// A file with a bound on its size.
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
// Errors: as HostFile. A text longer than the bound, and what is written while no new file can be
//   begun, is dropped.
class BoundedFile final : public HostFile {
 public:
  BoundedFile(WidePathView path, std::shared_ptr<WriteLedger> ledger, std::uint64_t most)
      : HostFile(path, std::move(ledger)), most_(most) {}

  // Takes over the open file and its place; called once. False when its size can't be read.
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
