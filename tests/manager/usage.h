// What the process holds, before and after a test that makes and ends much.
#pragma once

#include "support/os/clock.h"
#include "tests/manager/live_allocations.h"
#include "tests/support/process_usage.h"

namespace Tarnlo::test {

struct Usage {
  int handles = OpenHandles();
  int threads = RunningThreads();
  long long allocations = LiveAllocations();
};

// Threads that were left behind to end by themselves get the time they need.
inline Usage AwaitUsageOf(const Usage& before) {
  Usage now;
  for (int i = 0; i < 1000 && (now.threads > before.threads || now.handles > before.handles); ++i) {
    os::SleepMs(10);
    now = Usage();
  }
  return now;
}

}  // namespace Tarnlo::test
