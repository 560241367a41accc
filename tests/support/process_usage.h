// What this process holds of the system.
#pragma once

#include <cstdint>

namespace Tarnlo::test {

// Open handles of this process. Includes what the system's own libraries keep.
int OpenHandles();

// How many of them these libraries open and close as they like.
int HandlesThatComeAndGo();

// Handles when they are no more than wanted, or after 20 seconds: threads that were left behind in
// a call of the system's end by themselves.
int SettledHandles(int wanted);
// The same for threads.
int SettledThreads(int wanted);

// Those of them that are sockets.
int OpenSockets();

int RunningThreads();

// Until no more threads than that run. The watchdog ends a wait in vain.
void AwaitThreads(int most);

// Bytes that are in use on the heap.
std::int64_t HeapInUse();

// Bytes of memory in use, now and at most so far.
struct MemoryInUse {
  std::int64_t now = 0;
  std::int64_t peak = 0;
};
MemoryInUse Memory();

}  // namespace Tarnlo::test
