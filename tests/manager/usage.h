// What the process holds, before and after a test that makes and ends much.
#pragma once

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
  SettledThreads(before.threads);
  SettledHandles(before.handles);
  return {};
}

}  // namespace Tarnlo::test
