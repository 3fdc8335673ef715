// By the kernel's wide calls and the long form of paths, which keeps every name as it is given.
#include "tests/platform/device_root.h"

#include <windows.h>

#include <algorithm>
#include <iterator>
#include <stdexcept>
#include <string_view>

#include "platform/wide_path.h"

namespace valmere::test {
namespace {

constexpr wchar_t kLongForm[] = L"\\\\?\\";

std::wstring Wide(std::string_view text) {
  const platform::WidePath wide = platform::WidenPath(text);
  return {wide.begin(), wide.end()};
}

std::string Narrow(const wchar_t* text) {
  const std::wstring_view wide = text;
  return platform::NarrowPath(platform::WidePath(wide.begin(), wide.end()));
}

std::wstring LongForm(const std::string& path) {
  std::wstring whole = kLongForm + Wide(path);
  std::replace(whole.begin(), whole.end(), L'/', L'\\');
  return whole;
}

void Check(bool done) {
  if (!done) throw std::runtime_error("the device root can't be prepared");
}

// An open file, closed at the end.
class OpenFile {
 public:
  OpenFile(const std::string& path, DWORD access, DWORD disposition)
      : handle_(CreateFileW(LongForm(path).c_str(), access,
                            FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                            disposition, FILE_ATTRIBUTE_NORMAL, nullptr)) {}
  ~OpenFile() {
    if (valid()) CloseHandle(handle_);
  }
  OpenFile(const OpenFile&) = delete;
  OpenFile& operator=(const OpenFile&) = delete;

  bool valid() const { return handle_ != INVALID_HANDLE_VALUE; }
  HANDLE get() const { return handle_; }

 private:
  const HANDLE handle_;
};

void RemoveTree(const std::wstring& folder) {
  WIN32_FIND_DATAW found{};
  const HANDLE search = FindFirstFileW((folder + L"\\*").c_str(), &found);
  if (search == INVALID_HANDLE_VALUE) return;
  do {
    const std::wstring_view name = found.cFileName;
    if (name == L"." || name == L"..") continue;
    const std::wstring path = (folder + L'\\').append(name);
    if ((found.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0) {
      RemoveTree(path);
    } else {
      DeleteFileW(path.c_str());
    }
  } while (FindNextFileW(search, &found) != FALSE);
  FindClose(search);
  RemoveDirectoryW(folder.c_str());
}

}  // namespace

// The system makes a file of a new name, which gives way to the folder.
DeviceRoot::DeviceRoot() {
  wchar_t base[MAX_PATH + 1] = {};
  wchar_t name[MAX_PATH + 1] = {};
  Check(GetTempPathW(static_cast<DWORD>(std::size(base)), base) != 0);
  Check(GetTempFileNameW(base, L"val", 0, name) != 0);
  Check(DeleteFileW(name) != FALSE && CreateDirectoryW(name, nullptr) != FALSE);
  folder_ = Narrow(name);
  MakeFolder("root");
  Use("root");
}

DeviceRoot::~DeviceRoot() {
  SetEnvironmentVariableW(L"VALMERE_ROOT", nullptr);
  RemoveTree(LongForm(folder_));
}

void DeviceRoot::Use(const std::string& path) {
  SetEnvironmentVariableW(L"VALMERE_ROOT", Wide(At(path)).c_str());
}

void DeviceRoot::MakeFolder(const std::string& path) {
  Check(CreateDirectoryW(LongForm(At(path)).c_str(), nullptr) != FALSE);
}

void DeviceRoot::Put(const std::string& path, const std::string& bytes) {
  const OpenFile file(At(path), GENERIC_WRITE, CREATE_ALWAYS);
  DWORD count = 0;
  Check(file.valid() && WriteFile(file.get(), bytes.data(), static_cast<DWORD>(bytes.size()),
                                  &count, nullptr) != FALSE);
}

void DeviceRoot::Remove(const std::string& path) {
  const std::wstring whole = LongForm(At(path));
  if (DeleteFileW(whole.c_str()) == FALSE) RemoveDirectoryW(whole.c_str());
}

bool DeviceRoot::Has(const std::string& path) const {
  return GetFileAttributesW(LongForm(At(path)).c_str()) != INVALID_FILE_ATTRIBUTES;
}

std::string DeviceRoot::Get(const std::string& path) const {
  const OpenFile file(At(path), GENERIC_READ, OPEN_EXISTING);
  if (!file.valid()) return "(none)";
  std::string bytes(GetFileSize(file.get(), nullptr), '\0');
  DWORD count = 0;
  Check(ReadFile(file.get(), bytes.data(), static_cast<DWORD>(bytes.size()), &count, nullptr) !=
        FALSE);
  bytes.resize(count);
  return bytes;
}

}  // namespace valmere::test
