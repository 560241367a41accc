// A host that downloads for a long time: what it holds of the system at the end is what it held at
// the start.
#include <gtest/gtest.h>

#include "tests/abi/loaded_dll.h"
#include "tests/support/soak_run.h"

namespace Tarnlo {
namespace {

// Memory still grows by some megabytes with the busiest moment.
constexpr std::int64_t kSlackHeap = 10'000;
constexpr std::int64_t kSlackMemory = 16'000'000;

TEST(SlowSoak, ThousandsOfTasksLeaveNothingBehind) {
  static const test::LoadedDll dll;  // stays, as the library does once it has been started
  const auto [before, half_way, after] =
      test::RunSoak({[](const Task* task) { return dll.create_task(task); },
                     [](std::int32_t id) { return dll.pause_task(id); },
                     [](std::int32_t id) { return dll.continue_task(id); },
                     [](std::int32_t id) { return dll.cancel_task(id); },
                     [](StartCallback start, ProcessCallback process, CompleteCallback complete,
                        FailCallback fail) {
                       dll.set_callback_start(start);
                       dll.set_callback_process(process);
                       dll.set_callback_complete(complete);
                       dll.set_callback_fail(fail);
                     }});
  EXPECT_LE(after.handles, before.handles + test::HandlesThatComeAndGo());
  EXPECT_LE(after.sockets, before.sockets);
  EXPECT_LE(after.threads, before.threads);
  // What the system's libraries keep for themselves, by how many threads there were at the most, is
  // there half-way.
  EXPECT_LE(after.heap, half_way.heap + kSlackHeap);
  EXPECT_LE(after.memory, half_way.memory + kSlackMemory);
}

}  // namespace
}  // namespace Tarnlo
