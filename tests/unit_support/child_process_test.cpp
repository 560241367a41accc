#include "tests/support/child_process.h"

#include <gtest/gtest.h>

#include <chrono>
#include <string>

#include "support/os/event.h"
#include "support/os/wait.h"
#include "tests/support/temp_folder.h"

namespace Tarnlo::test {
namespace {

constexpr std::chrono::seconds kPatience(40);

TEST(ProcessChild, DISABLED_Ends) {}

TEST(ProcessChild, DISABLED_IsSkipped) {
  GTEST_SKIP();
}

TEST(ProcessChild, DISABLED_RunsOn) {
  const os::Event never;
  never.Wait(os::kForever);
}

TEST(ChildProcessTest, ChildRunsTheTestOrHasFailed) {
  const TempFolder temp;
  EXPECT_EQ(RunTestInChild("ProcessChild.DISABLED_Ends", temp.path()), 0);
  EXPECT_EQ(RunTestInChild("ProcessChild.DISABLED_IsSkipped", temp.path()), kChildRanNothing);
  EXPECT_EQ(RunTestInChild("ProcessChild.DISABLED_NobodyWrote", temp.path()), kChildRanNothing);
}

TEST(ChildProcessTest, KilledChildSaysSo) {
  const TempFolder temp;
  ChildProcess child("ProcessChild.DISABLED_RunsOn", temp.path());
  EXPECT_EQ(child.AwaitEnd(std::chrono::milliseconds(0)), kChildHung);
  child.Kill();
  EXPECT_EQ(child.AwaitEnd(kPatience), kChildKilled);
}

TEST(ChildProcessTest, KillingAChildThatEndedChangesNothing) {
  const TempFolder temp;
  ChildProcess child("ProcessChild.DISABLED_Ends", temp.path());
  EXPECT_EQ(child.AwaitEnd(kPatience), 0);
  child.Kill();
  EXPECT_EQ(child.AwaitEnd(kPatience), 0);
}

}  // namespace
}  // namespace Tarnlo::test
