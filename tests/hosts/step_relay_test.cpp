#include "hosts/step_relay.h"

#include <gtest/gtest.h>

#include <thread>

#include "tests/support/test_log.h"

namespace Tarnlo {
namespace {

using Lines = std::vector<std::string>;
constexpr StepLog kLog("Relay");

TEST(StepRelayTest, WaitingThreadWritesTheStepsOfAnotherInOrder) {
  const test::LogReader log;
  StepRelay relay;
  std::jthread worker([&relay] {
    for (int step = 1; step <= 5; ++step) relay.Step(step);
    relay.Finish();
  });
  EXPECT_TRUE(relay.WriteUntilFinished(kLog, nullptr));
  EXPECT_EQ(log.LinesOfThisThread(), (Lines{"[INFO] Relay 1", "[INFO] Relay 2", "[INFO] Relay 3",
                                            "[INFO] Relay 4", "[INFO] Relay 5"}));
}

TEST(StepRelayTest, StepIsWrittenBeforeTheNextIsReported) {
  const test::LogReader log;
  StepRelay relay;
  std::jthread worker([&] {
    relay.Step(1);
    EXPECT_TRUE(log.Await("Relay 1"));
    relay.Step(2);
    EXPECT_TRUE(log.Await("Relay 2"));
    relay.Finish();
  });
  EXPECT_TRUE(relay.WriteUntilFinished(kLog, nullptr));
}

TEST(StepRelayTest, FinishedBeforeTheWaitGivesAllSteps) {
  const test::LogReader log;
  StepRelay relay;
  relay.Step(7);
  relay.Finish();
  EXPECT_TRUE(relay.WriteUntilFinished(kLog, nullptr));
  EXPECT_EQ(log.LinesOfThisThread(), Lines{"[INFO] Relay 7"});
}

TEST(StepRelayTest, StopEndsTheWaitAndLeavesTheWorkerAlone) {
  const test::LogReader log;
  StepRelay relay;
  os::Event stop;
  relay.Step(1);
  std::jthread worker([&] {
    EXPECT_TRUE(log.Await("Relay 1"));
    stop.Set();
  });
  EXPECT_FALSE(relay.WriteUntilFinished(kLog, &stop));
  relay.Step(2);
  relay.Finish();
  EXPECT_EQ(log.LinesOfThisThread(), Lines{"[INFO] Relay 1"});
}

}  // namespace
}  // namespace Tarnlo
