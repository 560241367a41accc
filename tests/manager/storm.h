// What the tests that let many threads do random things to many tasks have in common.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "support/os/thread.h"
#include "tests/manager/usage.h"
#include "tests/support/fault_server.h"

namespace Tarnlo::test {

inline constexpr int kStormThreads = 8;
inline constexpr std::int32_t kStormIds = 40;
inline constexpr std::int64_t kStormSize = 300'000;

// Where the server has a task's file.
inline std::string StormPathOf(std::int32_t id) {
  std::string path = "/t";
  return path += std::to_string(id);
}

// Files that take their connections some seconds.
inline void ServeStorm(FaultServer& server) {
  constexpr std::int64_t kBytesPerSecond = 100'000;  // of one connection
  for (std::int32_t id = 1; id <= kStormIds; ++id) {
    server.Serve(StormPathOf(id), Body(kStormSize)).Trickling(kBytesPerSecond);
  }
}

// Calls `act(random, thread)` so many times in all, and returns when every thread is through.
template <typename Act>
void Rage(int operations, Act act) {
  std::vector<std::jthread> threads;
  for (int thread = 0; thread < kStormThreads; ++thread) {
    threads.emplace_back([thread, operations, act] {
      std::mt19937 random(static_cast<unsigned>(thread) + 1);
      for (int done = 0; done < operations / kStormThreads; ++done) act(random, thread);
    });
  }
}

template <typename Storm>
void RageAndSettle() {
  constexpr int kOperations = 2000;
  Storm storm;
  storm.Rage(kOperations);
  storm.Settle();
}

// A storm, with `Rage(operations)` and `Settle()`, leaves nothing in the process but what a first
// one has left: what is made once and kept, and what the system keeps of the busiest moment.
template <typename Storm>
void ExpectStormLeavesNothing() {
  const int threads = RunningThreads();
  const std::uint32_t forced = os::ForcedEnds();
  RageAndSettle<Storm>();
  AwaitThreads(threads);
  const Usage before;
  RageAndSettle<Storm>();
  const Usage after = AwaitUsageOf(before);
  EXPECT_EQ(os::ForcedEnds(), forced);
  EXPECT_LE(after.threads, before.threads);
  EXPECT_LE(after.handles, before.handles);
  EXPECT_LE(after.allocations, before.allocations + 20);
}

}  // namespace Tarnlo::test
