// A desktop system has no tree of its own for the device, so it lies under one folder. The long
// form of its path is taken: with it names such as NUL or COM1 below the folder mean files and not
// the system's devices, and blanks or dots at a name's end stay.
#include "platform/windows/device_root.h"

#include "platform/windows/windows_api.h"

namespace valmere::platform {
namespace {

constexpr wchar_t kRootVariable[] = L"VALMERE_ROOT";
constexpr wchar_t kDefaultRoot[] = L"C:\\ProgramData\\Valmere";
constexpr wchar_t kLongForm[] = L"\\\\?\\";

std::wstring EnvironmentText(const wchar_t* name) {
  std::wstring text(GetEnvironmentVariableW(name, nullptr, 0), L'\0');
  // The length that comes back lacks the closing NUL; it counts more when the text has grown since.
  const DWORD length = GetEnvironmentVariableW(name, text.data(), static_cast<DWORD>(text.size()));
  text.resize(length < text.size() ? length : 0);
  return text;
}

std::wstring WholePath(const std::wstring& path) {
  std::wstring whole(GetFullPathNameW(path.c_str(), 0, nullptr, nullptr), L'\0');
  const DWORD length =
      GetFullPathNameW(path.c_str(), static_cast<DWORD>(whole.size()), whole.data(), nullptr);
  whole.resize(length < whole.size() ? length : 0);
  return whole;
}

}  // namespace

std::wstring DeviceRoot() {
  std::wstring root = EnvironmentText(kRootVariable);
  if (root.empty()) root = kDefaultRoot;
  if (!root.starts_with(kLongForm)) root = kLongForm + WholePath(root);
  while (root.ends_with(L'\\') || root.ends_with(L'/'))
    root.pop_back();
  return root;
}

}  // namespace valmere::platform
