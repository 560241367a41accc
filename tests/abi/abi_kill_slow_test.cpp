// A host that dies in the middle of a download, and the next one.
#include <gtest/gtest.h>

#include "tests/abi/host_record.h"
#include "tests/abi/loaded_dll.h"
#include "tests/support/child_process.h"
#include "tests/support/kill_run.h"

namespace Tarnlo {
namespace {

using test::HostRecord;

TEST(AbiKillChild, DISABLED_DownloadsOneFile) {
  const test::LoadedDll dll;
  dll.set_callback_complete(&HostRecord::Complete);
  dll.set_callback_fail(&HostRecord::Fail);
  const std::wstring url = test::ToldVariable(test::kKillUrl);
  Task task;
  task.id = 1;
  task.url = std::string(url.begin(), url.end());
  task.save_dir = test::ToldVariable(test::kKillFolder);
  ASSERT_EQ(dll.create_task(&task), 1);
  ASSERT_TRUE(HostRecord::Get().Await("complete 1"));
}

TEST(SlowKill, NextProcessCompletesWhatAKilledOneLeft) {
  test::KillAndComplete("AbiKillChild.DISABLED_DownloadsOneFile");
}

}  // namespace
}  // namespace Tarnlo
