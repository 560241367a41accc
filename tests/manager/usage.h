// What the process holds, before and after a test that makes and ends much.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>

#include "support/os/clock.h"
#include "support/os/thread.h"
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

// Lets `act` do a few operations, for what is made once and kept, then many: nothing of those is
// left, and they have ended no thread by force.
template <typename Act>
void ExpectNothingIsLeftBy(Act act, int few, int many) {
  const int threads = RunningThreads();
  act(few);
  while (RunningThreads() > threads) os::SleepMs(5);
  const Usage before;
  const std::uint32_t forced = os::ForcedEnds();
  act(many);
  const Usage after = AwaitUsageOf(before);
  EXPECT_EQ(os::ForcedEnds(), forced);
  EXPECT_LE(after.threads, before.threads);
  EXPECT_LE(after.handles, before.handles);
  EXPECT_LE(after.allocations, before.allocations + 20);
}

}  // namespace Tarnlo::test
