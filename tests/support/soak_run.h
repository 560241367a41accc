// Very many tasks in one process, paused and continued at any moment: what it holds of the system
// before, half-way and after.
#pragma once

#include <cstdint>
#include <functional>

#include "api/tarnlo.h"
#include "tests/support/process_usage.h"

namespace Tarnlo::test {

// The library's functions, of the DLL or of the program itself.
struct SoakedFunctions {
  std::function<std::int32_t(const Task*)> create_task;
  std::function<bool(std::int32_t)> pause_task;
  std::function<bool(std::int32_t)> continue_task;
  std::function<bool(std::int32_t)> cancel_task;
  std::function<void(StartCallback, ProcessCallback, CompleteCallback, FailCallback)> set_callbacks;
};

struct SoakUsage {
  int handles = OpenHandles();
  int sockets = OpenSockets();
  int threads = RunningThreads();
  std::int64_t heap = HeapInUse();
  std::int64_t memory = Memory().now;
};

struct SoakFigures {
  SoakUsage before;
  SoakUsage half_way;
  SoakUsage after;
};

// Runs the tasks, some or, in a long run, thousands, and compares each file with its source. Prints
// the figures.
SoakFigures RunSoak(const SoakedFunctions& functions);

}  // namespace Tarnlo::test
