// What this process holds of the system.
#pragma once

#include <cstdint>

namespace Tarnlo::test {

// Open handles of this process. Includes what the system's own libraries keep.
int OpenHandles();

// How many of them these libraries open and close as they like.
int HandlesThatComeAndGo();

// Those of them that are sockets.
int OpenSockets();

int RunningThreads();

// Bytes that are in use on the heap.
std::int64_t HeapInUse();

// Bytes of memory in use, now and at most so far.
struct MemoryInUse {
  std::int64_t now = 0;
  std::int64_t peak = 0;
};
MemoryInUse Memory();

}  // namespace Tarnlo::test
