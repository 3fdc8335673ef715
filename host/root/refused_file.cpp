// A rewrite gives any file a good checksum, whatever is in it: after the first change the damage
// could no longer be seen, and damaged lines would count.
#include "host/root/refused_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <exception>
#include <string>
#include <string_view>
#include <system_error>

#include "host/root/property_file_place.h"
#include "host/system/file_calls.h"
#include "host/system/report.h"
#include "persist/file/file_stream.h"
#include "persist/file/property_file.h"
#include "platform/files.h"

namespace valmere::host {
namespace {

using platform::Descriptor;

constexpr const char* kCopyName = "ValmereProperties.ini.refused";

PropertyFileResult ReadAsTheServiceDoes() {
  PropertyMap lines;
  return ReadPropertyFile(*platform::MakeDeviceFileSystem(), kFirstPropertyFile, lines);
}

// The bytes up to the end or to the first one that can't be read. A file that is longer than the
// service reads is not rewritten by it, and its copy might fill the disk.
std::string ReadAsFarAsPossible(int file) {
  std::string bytes;
  char block[16384];
  for (ssize_t count = 1; count != 0;) {
    count = read(file, block, sizeof block);
    if (count < 0 && errno == EINTR) continue;
    if (count < 0 && bytes.empty()) ThrowSystemError(errno);
    if (count < 0) break;
    bytes.append(block, static_cast<std::size_t>(count));
    if (bytes.size() > FileStream::kLargestWhole) ThrowSystemError(EFBIG);
  }
  return bytes;
}

// Whether the copy of an earlier start has these very bytes.
bool IsKept(int folder, std::string_view bytes) try {
  return ReadAsFarAsPossible(OpenFile(folder, kCopyName, O_RDONLY).get()) == bytes;
} catch (const std::system_error&) {
  return false;
}

// An owner that can't be given must not leave the copy open to others than the original was.
void GiveRightsOf(int original, int copy) {
  struct stat wanted {};
  struct stat own {};
  if (fstat(original, &wanted) != 0 || fstat(copy, &own) != 0) ThrowSystemError(errno);
  mode_t mode = wanted.st_mode & 0777;
  const bool same = own.st_uid == wanted.st_uid && own.st_gid == wanted.st_gid;
  if (!same && fchown(copy, wanted.st_uid, wanted.st_gid) != 0) mode &= 0700;
  if (fchmod(copy, mode) != 0) ThrowSystemError(errno);
}

void WriteCopy(int folder, int original, std::string_view bytes) {
  const std::string name = UnfinishedName();
  unlinkat(folder, name.c_str(), 0);
  const Descriptor copy = MakeFile(folder, name.c_str(), 0600);
  try {
    GiveRightsOf(original, copy.get());
    WriteAll(copy.get(), bytes);
    Sync(copy.get());
    if (renameat(folder, name.c_str(), folder, kCopyName) != 0) ThrowSystemError(errno);
  } catch (const std::system_error&) {
    unlinkat(folder, name.c_str(), 0);
    throw;
  }
  Sync(folder);
}

void KeepCopy(const RootFolder& root) {
  const Descriptor folder = OpenFolder(root.descriptor(), kStoreName);
  const Descriptor original = OpenFile(folder.get(), kPropertyFileName, O_RDONLY);
  const std::string bytes = ReadAsFarAsPossible(original.get());
  if (!IsKept(folder.get(), bytes)) WriteCopy(folder.get(), original.get(), bytes);
}

// Reports why the file is refused, and where its copy is.
void KeepAndReport(const RootFolder& root, PropertyFileResult result) {
  const std::string store = root.path() + "/" + kStoreName + "/";
  const std::string refused =
      store + kPropertyFileName + ": refused, " + std::string(Describe(result));
  if (result == PropertyFileResult::kTooShort)
    return Report(refused + "; there is nothing to keep");
  try {
    KeepCopy(root);
    Report(refused + "; kept as " + kCopyName +
           "; what can be read of it: valmere propfile rescue " + store + kCopyName);
  } catch (const std::system_error& error) {
    Report(refused + "; cannot be kept as " + kCopyName + ": " + error.code().message());
  }
}

}  // namespace

void KeepRefusedFile(const RootFolder& root) noexcept try {
  const PropertyFileResult result = ReadAsTheServiceDoes();
  if (result != PropertyFileResult::kRead && result != PropertyFileResult::kNotOpened)
    KeepAndReport(root, result);
} catch (const std::exception&) {
  Report("out of memory; the property file is not looked at before the service loads it");
}

}  // namespace valmere::host
