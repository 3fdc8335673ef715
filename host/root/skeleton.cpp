// Several folders can't take their places in one step, and the root itself can't be exchanged: it
// may be a mount point. So they are made inside a folder of the root, whose name says how far that
// is. An unfinished one is cleared and made anew. From a finished one, what it still holds moves
// into place, which a later start can do as well.
#include "host/root/skeleton.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <exception>
#include <filesystem>
#include <string_view>
#include <system_error>

#include "host/system/file_calls.h"

namespace valmere::host {
namespace {

namespace fs = std::filesystem;
using platform::Descriptor;

constexpr const char* kUnfinished = ".valmere-unfinished";
constexpr const char* kFinished = ".valmere-skeleton";

// The folder of the property file is the last to take its place: a service that is started on half
// a skeleton finds none, and says so.
constexpr const char* kFolders[] = {"windows", "boot", "Store"};

struct SkeletonFile {
  const char* folder;
  const char* name;
  std::string_view text;
};

// The version files that the service reads at its start, as a device's boot image has them, and a
// property file with the value that the service itself begins with, closed by its checksum: without
// one the service reports that it could not load its properties.
constexpr SkeletonFile kFiles[] = {
    {"windows", "version.ini", "OSVersion=\"8.3.6250.0\"\r\nOSBuildNumber=\"6250\"\r\n"},
    {"boot", "qtlibs_version.ini", "QtVersion=\"5.6.1\"\r\nQtBuildNumber=\"17\"\r\n"},
    {"boot", "qtcommon_version.ini", "QtCommonVersion=\"5.6.1\"\r\nQtCommonBuildNumber=\"17\"\r\n"},
    {"Store", "ValmereProperties.ini",
     "99A61D40-20CE-41EA-A579-EB92C6ED94C6:DA821DC5-948D-4659-9B52-177E4C102129"
     "|General:Property Publishing Period in ms=500\n"
     "\xb6\xaf"},
};

bool Exists(int folder, const char* name) {
  struct stat status {};
  return fstatat(folder, name, &status, AT_SYMLINK_NOFOLLOW) == 0;
}

// Anything else of that name belongs to the user.
bool IsMark(int root, const char* name) {
  struct stat status {};
  return fstatat(root, name, &status, AT_SYMLINK_NOFOLLOW) == 0 && S_ISDIR(status.st_mode);
}

// A file system of its own begins with a folder for what its repair finds.
bool IsEmpty(const RootFolder& root) {
  const auto counts = [&root](const fs::directory_entry& entry) {
    const fs::path name = entry.path().filename();
    const bool is_mark = name == kUnfinished && IsMark(root.descriptor(), kUnfinished);
    return !is_mark && name != "lost+found";
  };
  return std::none_of(fs::directory_iterator(root.path()), fs::directory_iterator(), counts);
}

void Make(int parent, const char* name) {
  if (mkdirat(parent, name, 0777) != 0) ThrowSystemError(errno);
}

void Rename(int from, const char* name, int to, const char* new_name) {
  if (renameat(from, name, to, new_name) != 0) ThrowSystemError(errno);
}

void Remove(int folder, const char* name, int flags) {
  if (unlinkat(folder, name, flags) != 0 && errno != ENOENT) ThrowSystemError(errno);
}

// Removes what this program puts there, and nothing else.
void Clear(int root, const char* mark_name) {
  if (!Exists(root, mark_name)) return;
  const Descriptor mark = OpenFolder(root, mark_name);
  for (const SkeletonFile& file : kFiles) {
    if (!Exists(mark.get(), file.folder)) continue;
    Remove(OpenFolder(mark.get(), file.folder).get(), file.name, 0);
  }
  for (const char* folder : kFolders)
    Remove(mark.get(), folder, AT_REMOVEDIR);
  Remove(root, mark_name, AT_REMOVEDIR);
}

void Build(int root) {
  Make(root, kUnfinished);
  const Descriptor mark = OpenFolder(root, kUnfinished);
  for (const char* folder : kFolders)
    Make(mark.get(), folder);
  for (const SkeletonFile& file : kFiles) {
    const Descriptor folder = OpenFolder(mark.get(), file.folder);
    const Descriptor made = MakeFile(folder.get(), file.name, 0666);
    WriteAll(made.get(), file.text);
    Sync(made.get());
    Sync(folder.get());
  }
  Sync(mark.get());
  Rename(root, kUnfinished, root, kFinished);
  Sync(root);
}

// What a user has put into a place meanwhile stays.
bool IsTaken(int error) {
  return error == EEXIST || error == ENOTEMPTY || error == ENOTDIR;
}

void MoveIntoPlace(int root) {
  const Descriptor mark = OpenFolder(root, kFinished);
  for (const char* folder : kFolders)
    if (renameat(mark.get(), folder, root, folder) != 0 && errno != ENOENT && !IsTaken(errno))
      ThrowSystemError(errno);
  Sync(root);
  Clear(root, kFinished);
  Sync(root);
}

// As far as the disk allows. Whatever stops it, the next start can go on from there.
void Undo(int root) {
  if (Exists(root, kFinished)) {
    const Descriptor mark = OpenFolder(root, kFinished);
    for (const char* folder : kFolders)
      if (Exists(root, folder)) Rename(root, folder, mark.get(), folder);
    Rename(root, kFinished, root, kUnfinished);
  }
  Clear(root, kUnfinished);
}

void TryUndo(int root) noexcept {
  try {
    Undo(root);
  } catch (const std::exception&) {
  }
}

void CreateInEmpty(int root) {
  try {
    Clear(root, kUnfinished);
    Build(root);
    MoveIntoPlace(root);
  } catch (const std::exception&) {
    TryUndo(root);
    throw;
  }
}

}  // namespace

void CreateSkeleton(const RootFolder& root) try {
  if (IsMark(root.descriptor(), kFinished))
    MoveIntoPlace(root.descriptor());
  else if (IsEmpty(root))
    CreateInEmpty(root.descriptor());
} catch (const std::system_error& error) {
  throw RootUnusable(root.path() + ": cannot be given a skeleton: " + error.code().message());
}

}  // namespace valmere::host
