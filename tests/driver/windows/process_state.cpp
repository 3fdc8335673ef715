#include "tests/driver/process_state.h"

// Winsock 2 comes first, or the system's header brings its predecessor.
#include <winsock2.h>
#include <iphlpapi.h>
#include <malloc.h>
#include <psapi.h>
#include <tlhelp32.h>
#include <windows.h>

#include <algorithm>
#include <vector>

namespace valmere::test {

std::size_t ThreadCount() {
  const HANDLE snapshot = CreateToolhelp32Snapshot(TH32CS_SNAPTHREAD, 0);
  if (snapshot == INVALID_HANDLE_VALUE) return 0;
  THREADENTRY32 entry{};
  entry.dwSize = sizeof entry;
  std::size_t count = 0;
  for (BOOL more = Thread32First(snapshot, &entry); more != FALSE;
       more = Thread32Next(snapshot, &entry))
    count += entry.th32OwnerProcessID == GetCurrentProcessId() ? 1 : 0;
  CloseHandle(snapshot);
  return count;
}

// Always 0 in Wine, which does not count them.
std::size_t HandleCount() {
  DWORD count = 0;
  GetProcessHandleCount(GetCurrentProcess(), &count);
  return count;
}

// A thread that waits stands where it called the kernel, which is in one library. While it is held
// nothing may be called that takes a lock: it may hold that lock.
bool Sleeps(std::uint32_t thread) {
  const HANDLE handle =
      OpenThread(THREAD_SUSPEND_RESUME | THREAD_GET_CONTEXT, FALSE, static_cast<DWORD>(thread));
  if (handle == nullptr) return false;
  CONTEXT context{};
  context.ContextFlags = CONTEXT_CONTROL;
  SuspendThread(handle);
  const bool told = GetThreadContext(handle, &context) != FALSE;
  ResumeThread(handle);
  CloseHandle(handle);
  HMODULE module = nullptr;
  GetModuleHandleExW(
      GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
      reinterpret_cast<const wchar_t*>(context.Rip), &module);
  return told && module != nullptr && module == GetModuleHandleW(L"ntdll.dll");
}

std::size_t ResidentBytes() {
  PROCESS_MEMORY_COUNTERS counters{};
  GetProcessMemoryInfo(GetCurrentProcess(), &counters, sizeof counters);
  return counters.WorkingSetSize;
}

std::size_t HeapBytes() {
  _HEAPINFO entry{};
  std::size_t bytes = 0;
  while (_heapwalk(&entry) == _HEAPOK)
    if (entry._useflag == _USEDENTRY) bytes += entry._size;
  return bytes;
}

std::size_t ListeningSocketCount() {
  DWORD size = 0;
  std::vector<char> buffer;
  DWORD result = ERROR_INSUFFICIENT_BUFFER;
  while (result == ERROR_INSUFFICIENT_BUFFER) {
    buffer.resize(std::max<std::size_t>(size, sizeof(MIB_TCPTABLE_OWNER_PID)));
    size = static_cast<DWORD>(buffer.size());
    result =
        GetExtendedTcpTable(buffer.data(), &size, FALSE, AF_INET, TCP_TABLE_OWNER_PID_LISTENER, 0);
  }
  if (result != NO_ERROR) return 0;
  const auto* const table = reinterpret_cast<const MIB_TCPTABLE_OWNER_PID*>(buffer.data());
  const MIB_TCPROW_OWNER_PID* const rows = table->table;
  return static_cast<std::size_t>(std::count_if(
      rows, rows + table->dwNumEntries,
      [](const MIB_TCPROW_OWNER_PID& row) { return row.dwOwningPid == GetCurrentProcessId(); }));
}

}  // namespace valmere::test
