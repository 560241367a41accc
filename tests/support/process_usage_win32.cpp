#include <windows.h>

#include "tests/support/process_usage.h"

// After windows.h.
#include <psapi.h>
#include <tlhelp32.h>

#include <cstddef>
#include <vector>

#include "support/os/handle.h"

namespace Tarnlo::test {
namespace {

// The system's table of all handles, as NtQuerySystemInformation gives it.
struct HandleEntry {
  ULONG process;
  UCHAR type;
  UCHAR flags;
  USHORT value;
  void* object;
  ULONG access;
};
struct HandleTable {
  ULONG count;
  HandleEntry entries[1];
};
constexpr int kHandleTable = 16;
constexpr LONG kTooSmall = static_cast<LONG>(0xC0000004);

using Query = LONG(WINAPI*)(int what, void* buffer, ULONG size, ULONG* needed);

Query NtQuery() {
  const HMODULE module = GetModuleHandleW(L"ntdll.dll");
  return reinterpret_cast<Query>(
      reinterpret_cast<void*>(GetProcAddress(module, "NtQuerySystemInformation")));
}

}  // namespace

int OpenHandles() {
  const Query query = NtQuery();
  std::vector<std::byte> buffer(std::size_t{1} << 20);
  ULONG needed = 0;
  while (query(kHandleTable, buffer.data(), static_cast<ULONG>(buffer.size()), &needed) ==
         kTooSmall) {
    buffer.resize(buffer.size() * 2);
  }
  const auto* table = reinterpret_cast<const HandleTable*>(buffer.data());
  int count = 0;
  for (ULONG i = 0; i < table->count; ++i) {
    if (table->entries[i].process == GetCurrentProcessId()) ++count;
  }
  return count;
}

int RunningThreads() {
  const os::KernelHandle snapshot(CreateToolhelp32Snapshot(TH32CS_SNAPTHREAD, 0));
  THREADENTRY32 entry{};
  entry.dwSize = sizeof entry;
  int count = 0;
  for (BOOL more = Thread32First(snapshot.get(), &entry); more != 0;
       more = Thread32Next(snapshot.get(), &entry)) {
    if (entry.th32OwnerProcessID == GetCurrentProcessId()) ++count;
  }
  return count;
}

MemoryInUse Memory() {
  PROCESS_MEMORY_COUNTERS counters{};
  counters.cb = sizeof counters;
  K32GetProcessMemoryInfo(GetCurrentProcess(), &counters, sizeof counters);
  return {static_cast<std::int64_t>(counters.WorkingSetSize),
          static_cast<std::int64_t>(counters.PeakWorkingSetSize)};
}

}  // namespace Tarnlo::test
