// Rights, mount options, attributes and quotas all decide whether a file can be written, so it is
// tried instead. The trial file loses its name at once: after a kill it is gone with the process.
#include "host/root/root_check.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>
#include <system_error>

#include "host/root/property_file_place.h"
#include "host/system/file_calls.h"
#include "persist/file/file_stream.h"

namespace valmere::host {
namespace {

using platform::Descriptor;

constexpr std::uint64_t kLeastTrial = 8192;

class Flaw : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// What a flaw means for the settings.
constexpr const char* kLost = "; settings will not be kept";
constexpr const char* kInPlace = "; it is written in place, and a kill may cost all settings";

// Does a step whose failure is reported as "path: what: cause" and what it means.
template <class Step>
auto Try(const std::string& path, const char* what, Step step) {
  try {
    return step();
  } catch (const std::system_error& error) {
    throw Flaw(path + ": " + what + ": " + error.code().message() + kLost);
  }
}

// The property file, as far as there is one.
struct PropertyFile {
  bool exists = false;
  bool is_anothers = false;  // and its owner can't be kept
  std::uint64_t length = 0;  // a longer one than the service reads is not rewritten either
};

PropertyFile LookAtPropertyFile(int folder) try {
  const Descriptor file = OpenFile(folder, kPropertyFileName, O_RDWR);
  struct stat status {};
  if (fstat(file.get(), &status) != 0) return {};
  return {true, geteuid() != 0 && status.st_uid != geteuid(),
          std::min(static_cast<std::uint64_t>(status.st_size), FileStream::kLargestWhole)};
} catch (const std::system_error& error) {
  if (error.code() == std::errc::no_such_file_or_directory) return {};
  throw;
}

Descriptor MakeTrialFile(int folder) {
  const std::string name = UnfinishedName();
  unlinkat(folder, name.c_str(), 0);
  Descriptor file = MakeFile(folder, name.c_str(), 0600);
  if (unlinkat(folder, name.c_str(), 0) != 0) ThrowSystemError(errno);
  return file;
}

void Fill(int file, std::uint64_t length) {
  const std::string block(std::min(length, std::uint64_t{65536}), ' ');
  for (std::uint64_t done = 0; done < length; done += block.size())
    WriteAll(file, std::string_view(block).substr(0, length - done));
  Sync(file);
}

void TryToKeep(const RootFolder& root) {
  const std::string store = root.path() + "/" + kStoreName;
  const Descriptor folder =
      Try(store, "cannot be opened", [&] { return OpenFolder(root.descriptor(), kStoreName); });
  const std::string path = store + "/" + kPropertyFileName;
  const PropertyFile file =
      Try(path, "cannot be read and written", [&] { return LookAtPropertyFile(folder.get()); });
  // Without this right the file itself can be written, and not its name.
  const bool takes_files =
      !file.exists || faccessat(folder.get(), ".", W_OK, AT_EACCESS) == 0 || errno != EACCES;
  if (!takes_files) throw Flaw(path + ": its folder takes no new file" + kInPlace);
  if (file.is_anothers) throw Flaw(path + ": belongs to another user" + kInPlace);
  const Descriptor trial =
      Try(store, "cannot take a new file", [&] { return MakeTrialFile(folder.get()); });
  Try(store, "cannot be written", [&] { Fill(trial.get(), std::max(kLeastTrial, file.length)); });
}

}  // namespace

std::optional<std::string> WhySettingsAreLost(const RootFolder& root) try {
  TryToKeep(root);
  return std::nullopt;
} catch (const Flaw& flaw) {
  return flaw.what();
}

}  // namespace valmere::host
