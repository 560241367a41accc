#include <gtest/gtest.h>

#include <chrono>
#include <string>

#include "tests/support/child_process.h"
#include "tests/support/temp_folder.h"

namespace Tarnlo::test {
namespace {

constexpr std::chrono::seconds kPatience(40);

TEST(ChildProcessNativeTest, ChildThatCannotBeStartedSaysSoAndItsKillConcernsNobody) {
  const TempFolder temp;
  ChildProcess other("ProcessChild.DISABLED_RunsOn", temp.path());
  // An argument is longer than the system takes; Wine cuts it.
  ChildProcess child(std::string(200'000, 'x'), temp.path());
  EXPECT_EQ(child.AwaitEnd(kPatience), kChildNotStarted);
  child.Kill();
  EXPECT_EQ(child.AwaitEnd(kPatience), kChildNotStarted);
  EXPECT_EQ(other.AwaitEnd(std::chrono::milliseconds(0)), kChildHung);
}

}  // namespace
}  // namespace Tarnlo::test
