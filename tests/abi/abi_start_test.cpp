// The exports before the first task, and first tasks that start the library. The disabled tests are
// processes of their own.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <string>
#include <thread>
#include <vector>

#include "api/tarnlo.h"
#include "tests/abi/import_fixture.h"
#include "tests/support/child_process.h"
#include "tests/support/meeting.h"
#include "tests/support/temp_folder.h"

namespace Tarnlo {
namespace {

using test::AbiTest;

TEST(AbiChild, DISABLED_BeforeTheFirstTask) {
  test::SetCallbacks();
  for (const std::int32_t id : {1, 0, -1}) {
    EXPECT_FALSE(cancel_task(id));
    EXPECT_FALSE(pause_task(id));
    EXPECT_FALSE(continue_task(id));
  }
  test::ExpectTheRest();
}

TEST(StartTest, NothingIsStartedBeforeTheFirstTask) {
  const test::TempFolder temp;
  EXPECT_EQ(test::RunTestInChild("AbiChild.DISABLED_BeforeTheFirstTask", temp.path()), 0);
  EXPECT_TRUE(temp.Names().empty());  // no log
}

TEST(AbiChild, DISABLED_FirstTaskIsRefused) {
  const Task task;
  EXPECT_EQ(create_task(&task), -1);
  EXPECT_TRUE(cancel_task(1));
  EXPECT_TRUE(pause_task(1));
  EXPECT_FALSE(continue_task(1));
}

TEST(StartTest, FirstTaskStartsTheLibraryThoughItIsRefused) {
  const test::TempFolder temp;
  EXPECT_EQ(test::RunTestInChild("AbiChild.DISABLED_FirstTaskIsRefused", temp.path()), 0);
  EXPECT_FALSE(temp.Names().empty());  // the log
}

TEST_F(AbiTest, DISABLED_SixteenFirstTasks) {
  constexpr std::int32_t kThreads = 16;
  std::vector<test::TempFolder> folders(kThreads + 1);
  std::atomic<bool> starting{true};
  // A call that races the start finds the library not started or whole, and from then on whole.
  std::vector<std::jthread> others;
  for (int i = 0; i < 4; ++i) {
    others.emplace_back([&starting] {
      bool whole = false;
      while (starting) {
        const bool now = pause_task(99);
        EXPECT_TRUE(now || !whole);
        whole = now;
        EXPECT_FALSE(continue_task(99));
        // The race is over; the others are to get on.
        if (whole) std::this_thread::sleep_for(std::chrono::milliseconds(1));
      }
    });
  }
  {
    test::Meeting start(kThreads);
    std::vector<std::jthread> threads;
    for (std::int32_t id = 1; id <= kThreads; ++id) {
      threads.emplace_back([&, id] {
        Task task = TaskOf(id, "/f");
        task.save_dir = folders.at(static_cast<std::size_t>(id)).path();
        start.Attend();
        EXPECT_EQ(create_task(&task), id);
        EXPECT_TRUE(pause_task(99));  // started now
      });
    }
  }
  starting = false;
  for (std::int32_t id = 1; id <= kThreads; ++id) {
    EXPECT_TRUE(m_record.Await("complete " + std::to_string(id)));
    EXPECT_EQ(test::FileDifference(folders.at(static_cast<std::size_t>(id)).File(L"f"), m_body),
              "");
  }
}

TEST(StartTest, SixteenThreadsCreateTheirFirstTasksTogether) {
  for (int turn = 0; turn < 3; ++turn) {
    const test::TempFolder temp;
    EXPECT_EQ(test::RunTestInChild("AbiTest.DISABLED_SixteenFirstTasks", temp.path()), 0);
  }
}

}  // namespace
}  // namespace Tarnlo
