// A host that downloads for a long time, without a DLL. What it does with memory is the sanitizers'
// to judge.
#include <gtest/gtest.h>

#include "tests/support/soak_run.h"

namespace Tarnlo {
namespace {

TEST(SlowSoak, ThousandsOfTasksLeaveNothingBehind) {
  const auto [before, half_way, after] =
      test::RunSoak({&create_task, &pause_task, &continue_task, &cancel_task,
                     [](StartCallback start, ProcessCallback process, CompleteCallback complete,
                        FailCallback fail) {
                       set_callback_start(start);
                       set_callback_process(process);
                       set_callback_complete(complete);
                       set_callback_fail(fail);
                     }});
  EXPECT_LE(after.handles, before.handles);
  EXPECT_LE(after.sockets, before.sockets);
  EXPECT_LE(after.threads, before.threads);
  EXPECT_LE(half_way.threads, before.threads);
}

}  // namespace
}  // namespace Tarnlo
