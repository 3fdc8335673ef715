// Rights, mount options, attributes and quotas all have a say in whether a file can be written, so
// none of them is asked. The trial file loses its name at once: what a kill leaves behind is gone
// with the process.
#include "host/root_check.h"

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

#include "host/file_calls.h"
#include "host/property_file_place.h"
#include "persist/file_stream.h"

namespace valmere::host {
namespace {

using platform::Descriptor;

constexpr std::uint64_t kLeastTrial = 8192;

class Flaw : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// Does a step whose failure is told as "path: what: cause".
template <class Step>
auto Try(const std::string& path, const char* what, Step step) {
  try {
    return step();
  } catch (const std::system_error& error) {
    throw Flaw(path + ": " + what + ": " + error.code().message());
  }
}

// The length of the property file, 0 where there is none. A longer one than the service reads is
// not rewritten either.
std::uint64_t LengthOfPropertyFile(int folder) try {
  const Descriptor file = OpenFile(folder, kPropertyFileName, O_RDWR);
  struct stat status {};
  const bool known = fstat(file.get(), &status) == 0;
  return known ? std::min(static_cast<std::uint64_t>(status.st_size), FileStream::kLargestWhole)
               : 0;
} catch (const std::system_error& error) {
  if (error.code() == std::errc::no_such_file_or_directory) return 0;
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
  const std::uint64_t length = Try(store + "/" + kPropertyFileName, "cannot be read and written",
                                   [&] { return LengthOfPropertyFile(folder.get()); });
  const Descriptor trial =
      Try(store, "cannot take a new file", [&] { return MakeTrialFile(folder.get()); });
  Try(store, "cannot be written", [&] { Fill(trial.get(), std::max(kLeastTrial, length)); });
}

}  // namespace

std::optional<std::string> WhySettingsAreLost(const RootFolder& root) try {
  TryToKeep(root);
  return std::nullopt;
} catch (const Flaw& flaw) {
  return std::string(flaw.what()) + "; settings will not be kept";
}

}  // namespace valmere::host
