#include "tests/platform/wine.h"

#include <windows.h>

namespace valmere::test {

bool InWine() {
  return GetProcAddress(GetModuleHandleW(L"ntdll.dll"), "wine_get_version") != nullptr;
}

}  // namespace valmere::test
