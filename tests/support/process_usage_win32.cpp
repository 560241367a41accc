#include <winsock2.h>

// After winsock2.h.
#include <windows.h>

#include "tests/support/process_usage.h"

// After windows.h.
#include <psapi.h>
#include <tlhelp32.h>

#include <algorithm>
#include <cstddef>
#include <vector>

#include "hosts/network_use.h"
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

std::vector<USHORT> HandlesOfThisProcess() {
  const Query query = NtQuery();
  std::vector<std::byte> buffer(std::size_t{1} << 20);
  ULONG needed = 0;
  while (query(kHandleTable, buffer.data(), static_cast<ULONG>(buffer.size()), &needed) ==
         kTooSmall) {
    buffer.resize(buffer.size() * 2);
  }
  const auto* table = reinterpret_cast<const HandleTable*>(buffer.data());
  std::vector<USHORT> handles;
  for (ULONG i = 0; i < table->count; ++i) {
    if (table->entries[i].process == GetCurrentProcessId()) {
      handles.push_back(table->entries[i].value);
    }
  }
  return handles;
}

}  // namespace

int OpenHandles() {
  return static_cast<int>(HandlesOfThisProcess().size());
}

// Seen: three, over thousands of runs that left none.
int HandlesThatComeAndGo() {
  return 5;
}

int OpenSockets() {
  const NetworkUse network;
  const std::vector<USHORT> handles = HandlesOfThisProcess();
  return static_cast<int>(std::count_if(handles.begin(), handles.end(), [](USHORT handle) {
    int type = 0;
    int size = sizeof type;
    return getsockopt(handle, SOL_SOCKET, SO_TYPE, reinterpret_cast<char*>(&type), &size) == 0;
  }));
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

// Of all heaps of the process.
std::int64_t HeapInUse() {
  HANDLE heaps[64];
  const DWORD count = std::min<DWORD>(GetProcessHeaps(64, heaps), 64);
  std::int64_t bytes = 0;
  for (DWORD i = 0; i < count; ++i) {
    PROCESS_HEAP_ENTRY entry{};
    HeapLock(heaps[i]);
    while (HeapWalk(heaps[i], &entry) != 0) {
      if ((entry.wFlags & PROCESS_HEAP_ENTRY_BUSY) != 0) bytes += entry.cbData;
    }
    HeapUnlock(heaps[i]);
  }
  return bytes;
}

MemoryInUse Memory() {
  PROCESS_MEMORY_COUNTERS counters{};
  counters.cb = sizeof counters;
  K32GetProcessMemoryInfo(GetCurrentProcess(), &counters, sizeof counters);
  return {static_cast<std::int64_t>(counters.WorkingSetSize),
          static_cast<std::int64_t>(counters.PeakWorkingSetSize)};
}

}  // namespace Tarnlo::test
