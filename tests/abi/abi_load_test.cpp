// A host that loads the DLL by hand: its functions, and the life of the module. The disabled tests
// are processes of their own.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>

#include "tests/abi/host_record.h"
#include "tests/abi/loaded_dll.h"
#include "tests/abi/told_task.h"
#include "tests/support/child_process.h"
#include "tests/support/fault_server.h"
#include "tests/support/process_usage.h"
#include "tests/support/temp_folder.h"

namespace Tarnlo {
namespace {

using test::HostRecord;
using test::LoadedDll;

// --- Modules that are freed

// What answers the same before the first task and after it.
void ExpectTheRest(const LoadedDll& dll) {
  EXPECT_EQ(dll.get_all_tasks(), "");
  EXPECT_EQ(dll.fntarnlo(), 0);
  EXPECT_EQ(dll.ntarnlo(), 0);
  char object = '#';
  dll.MakeCtarnlo(&object);
  EXPECT_EQ(object, '#');
}

void LoadUseAndFree() {
  const LoadedDll dll;
  ASSERT_TRUE(dll.valid());
  dll.SetCallbacks();
  EXPECT_FALSE(dll.cancel_task(1));
  EXPECT_TRUE(dll.cancel_all_task());
  ExpectTheRest(dll);
}

TEST(AbiLoadTest, FreedWithoutATaskItLeavesNothingAThousandTimes) {
  for (int i = 0; i < 20; ++i) LoadUseAndFree();  // what the system keeps
  const int handles = test::OpenHandles();
  const int threads = test::RunningThreads();
  const std::int64_t heap = test::HeapInUse();
  for (int i = 0; i < 1000; ++i) {
    LoadUseAndFree();
    ASSERT_FALSE(LoadedDll::IsThere()) << i;
  }
  EXPECT_EQ(test::OpenHandles(), handles);
  EXPECT_LE(test::RunningThreads(), threads);
  EXPECT_LE(test::HeapInUse(), heap + 10'000);
}

TEST(AbiLoadChild, DISABLED_FreesTheModuleWhileATaskRuns) {
  {
    const LoadedDll dll;
    dll.SetCallbacks();
    const Task task = test::ToldTask(1);
    ASSERT_EQ(dll.create_task(&task), 1);
  }
  ASSERT_TRUE(LoadedDll::IsThere());
  ASSERT_TRUE(LoadedDll::IsThereAfterFreeing(5));
  const LoadedDll again;
  EXPECT_TRUE(again.pause_task(1));  // the same library, started
  EXPECT_TRUE(again.continue_task(1));
  EXPECT_TRUE(again.pause_task(2));  // of which it knows nothing
  EXPECT_FALSE(again.continue_task(2));
  EXPECT_TRUE(again.cancel_task(2));
  EXPECT_TRUE(again.cancel_all_task());
  ExpectTheRest(again);
  EXPECT_TRUE(HostRecord::Get().Await("complete 1"));
}

TEST(AbiLoadTest, ModuleStaysAfterTheFirstTaskWhateverTheHostFrees) {
  const test::Body body(1'000'000);
  const test::TempFolder folder;
  const test::TempFolder temp;
  test::FaultServer server;
  server.Serve("/t1", body).Trickling(100'000);
  test::Tell(server.Url("/t"), folder.path());
  EXPECT_EQ(test::RunTestInChild("AbiLoadChild.DISABLED_FreesTheModuleWhileATaskRuns", temp.path()),
            0);
  EXPECT_EQ(test::FileDifference(folder.File(L"t1"), body), "");
}

}  // namespace
}  // namespace Tarnlo
