// Files by the C runtime's streams with wide names, without a buffer of their own, so that the next
// open of the file sees what was written; the driver's own device by the kernel.
#include "platform/files.h"

#include <algorithm>
#include <cstdio>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "platform/windows/current_thread.h"
#include "platform/windows/device_root.h"
#include "platform/windows/windows_api.h"

namespace valmere::platform {
namespace {

static_assert(sizeof(wchar_t) == sizeof(char16_t), "the kernel's texts are of 16 bits");

using Names = std::vector<std::wstring>;

// A name with a colon leads to a device or into a file's side streams.
bool IsPlain(const std::wstring& name) {
  return name.find(L':') == std::wstring::npos;
}

// The names of a path from the top down, without anything that could lead out of the root. An empty
// list is the root itself.
std::optional<Names> SplitPath(WidePathView path) {
  if (path.find(u'\0') != WidePathView::npos) return std::nullopt;
  Names names;
  while (!path.empty()) {
    const std::size_t end = std::min(path.find_first_of(u"/\\"), path.size());
    const std::wstring name(path.begin(), path.begin() + static_cast<std::ptrdiff_t>(end));
    path.remove_prefix(std::min(end + 1, path.size()));
    if (name.empty() || name == L".") continue;
    if (name != L"..")
      names.push_back(name);
    else if (!names.empty())
      names.pop_back();
  }
  return names;
}

// The only device that the service opens is its own: "PRN" and a digit. A desktop system has
// others, which it must not open.
bool IsOwnDevice(const Names& names) {
  if (names.size() != 1) return false;
  const std::wstring& name = names.front();
  return name.size() == 5 && name.starts_with(L"PRN") && name[3] >= L'0' && name[3] <= L'9' &&
         name[4] == L':';
}

bool IsThere(DWORD attributes) {
  return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_REPARSE_POINT) == 0;
}
bool IsFolder(DWORD attributes) {
  return IsThere(attributes) && (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
}
bool IsFile(DWORD attributes) {
  return IsThere(attributes) && (attributes & FILE_ATTRIBUTE_DIRECTORY) == 0;
}

// The mode of _wfopen; nothing when the combination makes no sense. To write without truncating
// takes a file that is there, so a missing one is made first, and a stream that could be read too.
struct Mode {
  const wchar_t* text;
  bool make_first;
};
std::optional<Mode> StreamMode(OpenFlags flags) {
  const bool read = Has(flags, OpenFlags::kRead);
  const bool append = Has(flags, OpenFlags::kAppend);
  const bool truncate = Has(flags, OpenFlags::kTruncate);
  if (!Has(flags, OpenFlags::kWrite) && !append)
    return read && !truncate ? std::optional<Mode>({L"rb", false}) : std::nullopt;
  if (truncate) return Mode{read ? L"w+b" : L"wb", false};
  if (append) return Mode{read ? L"a+b" : L"ab", false};
  return Mode{L"r+b", !read};
}

class RuntimeFile final : public File {
 public:
  explicit RuntimeFile(bool readable) : readable_(readable) {}
  ~RuntimeFile() override {
    if (stream_ != nullptr) std::fclose(stream_);
  }

  // Without a stream until it is given one, once.
  void Adopt(std::FILE* stream) { stream_ = stream; }

  std::size_t Read(void* buffer, std::size_t length) override {
    if (!readable_) return 0;
    Turn(Direction::kReading);
    return std::fread(buffer, 1, length, stream_);
  }
  std::size_t Write(const void* buffer, std::size_t length) override {
    Turn(Direction::kWriting);
    return std::fwrite(buffer, 1, length, stream_);
  }
  std::optional<std::uint64_t> Size() override {
    std::fpos_t position{};
    if (std::fgetpos(stream_, &position) != 0 || std::fseek(stream_, 0, SEEK_END) != 0)
      return std::nullopt;
    std::fpos_t end{};
    const bool told = std::fgetpos(stream_, &end) == 0;
    direction_ = Direction::kNone;
    // What is read from the wrong place would be as wrong as the size.
    if (std::fsetpos(stream_, &position) != 0 || !told) return std::nullopt;
    return static_cast<std::uint64_t>(end);
  }

 private:
  enum class Direction { kNone, kReading, kWriting };

  // A stream wants to be placed between a read and a write.
  void Turn(Direction direction) {
    if (direction_ != direction && direction_ != Direction::kNone) std::fseek(stream_, 0, SEEK_CUR);
    direction_ = direction;
  }

  std::FILE* stream_ = nullptr;
  const bool readable_;
  Direction direction_ = Direction::kNone;
};

class DeviceFile final : public File {
 public:
  ~DeviceFile() override {
    if (handle_ != INVALID_HANDLE_VALUE) CloseHandle(handle_);
  }

  // Without a handle until it is given one, once.
  void Adopt(HANDLE handle) { handle_ = handle; }

  std::size_t Read(void* buffer, std::size_t length) override {
    DWORD count = 0;
    const WaitInKernel wait;
    const BOOL done = ReadFile(handle_, buffer, Limited(length), &count, nullptr);
    return done != FALSE ? count : 0;
  }
  std::size_t Write(const void* buffer, std::size_t length) override {
    DWORD count = 0;
    const WaitInKernel wait;
    const BOOL done = WriteFile(handle_, buffer, Limited(length), &count, nullptr);
    return done != FALSE ? count : 0;
  }
  std::optional<std::uint64_t> Size() override { return 0; }

 private:
  static DWORD Limited(std::size_t length) {
    return static_cast<DWORD>(std::min<std::size_t>(length, 0x7fffffff));
  }

  HANDLE handle_ = INVALID_HANDLE_VALUE;
};

std::unique_ptr<File> OpenDevice(const std::wstring& name, OpenFlags flags) {
  DWORD access = 0;
  if (Has(flags, OpenFlags::kRead)) access |= GENERIC_READ;
  if (Has(flags, OpenFlags::kWrite)) access |= GENERIC_WRITE;
  if (access == 0) return nullptr;
  auto opened = std::make_unique<DeviceFile>();
  const HANDLE handle = CreateFileW(name.c_str(), access, FILE_SHARE_READ | FILE_SHARE_WRITE,
                                    nullptr, OPEN_EXISTING, 0, nullptr);
  if (handle == INVALID_HANDLE_VALUE) return nullptr;
  opened->Adopt(handle);
  return opened;
}

// Purpose: the files below one folder, or the system's own tree where there is no such folder.
// Owner: the service, shared with all components that open files.
// Threads: any; nothing changes after construction.
// Errors: what can't be reached can't be opened.
class WindowsFileSystem final : public FileSystem {
 public:
  explicit WindowsFileSystem(std::wstring root) : root_(std::move(root)) {}

  std::unique_ptr<File> Open(WidePathView path, OpenFlags flags) override {
    const std::optional<Names> names = SplitPath(path);
    if (!names) return nullptr;
    if (IsOwnDevice(*names)) return OpenDevice(names->front(), flags);
    const std::optional<Mode> mode = StreamMode(flags);
    const std::optional<std::wstring> place = Find(*names);
    if (!mode || !place) return nullptr;
    const DWORD attributes = GetFileAttributesW(place->c_str());
    if (attributes != INVALID_FILE_ATTRIBUTES && !IsFile(attributes)) return nullptr;
    // Made first: a file that is emptied and then not opened, for lack of memory, would be lost.
    auto opened = std::make_unique<RuntimeFile>(Has(flags, OpenFlags::kRead));
    std::FILE* stream = _wfopen(place->c_str(), mode->text);
    if (stream == nullptr && mode->make_first && attributes == INVALID_FILE_ATTRIBUTES)
      stream = _wfopen(place->c_str(), L"w+b");
    if (stream == nullptr) return nullptr;
    std::setvbuf(stream, nullptr, _IONBF, 0);
    if (Has(flags, OpenFlags::kAtEnd)) std::fseek(stream, 0, SEEK_END);
    opened->Adopt(stream);
    return opened;
  }

  bool Exists(WidePathView path) override {
    const std::optional<Names> names = SplitPath(path);
    const std::optional<std::wstring> place = names ? Find(*names) : std::nullopt;
    return place && IsThere(GetFileAttributesW(place->c_str()));
  }

  bool Remove(WidePathView path) override {
    const std::optional<Names> names = SplitPath(path);
    const std::optional<std::wstring> place = names ? Find(*names) : std::nullopt;
    return place && IsFile(GetFileAttributesW(place->c_str())) &&
           DeleteFileW(place->c_str()) != FALSE;
  }

 private:
  // The whole path. Nothing when a folder on the way is missing or is not a folder, or a name leads
  // elsewhere.
  std::optional<std::wstring> Find(const Names& names) const {
    std::wstring place = root_;
    for (std::size_t i = 0; i < names.size(); ++i) {
      if (!IsPlain(names[i])) return std::nullopt;
      if (i > 0 && !IsFolder(GetFileAttributesW(place.c_str()))) return std::nullopt;
      place += L'\\';
      place += names[i];
    }
    return place;
  }

  const std::wstring root_;
};

}  // namespace

std::shared_ptr<FileSystem> MakeDeviceFileSystem() {
  return std::make_shared<WindowsFileSystem>(DeviceRoot());
}

}  // namespace valmere::platform
