// What a job holds of the system while it is paused and continued over and over.
#include <gtest/gtest.h>

#include <chrono>
#include <random>
#include <string>
#include <thread>

#include "tests/engine/job_fixture.h"
#include "tests/support/process_usage.h"

namespace Tarnlo::test {
namespace {

constexpr int kRounds = 250;

class SlowPauses : public JobTest {
 protected:
  // Works until the job is somewhere: on its first lines, in the probe, among running workers.
  void PauseSomewhere(int round) {
    if (round % 20 == 0) {
      const std::size_t lengths = Observer().CountOf(kEventRangeLength);
      ASSERT_TRUE(Start("/f"));
      ASSERT_TRUE(Observer().AwaitCount(kEventRangeLength, lengths + 6));
    } else {
      ASSERT_TRUE(Start("/f"));
      std::this_thread::sleep_for(std::chrono::milliseconds(m_random() % 6));
    }
    Pause();
    Job().SetNotifying(true);
    ASSERT_TRUE(Job().RenewStopEvent());
  }

  const unsigned m_seed = std::random_device()();
  std::minstd_rand m_random{m_seed};
};

class SlowPausesInTurns : public SlowPauses, public testing::WithParamInterface<int> {};

TEST_P(SlowPausesInTurns, LeaveTheHandlesWhereTheyWere) {
  SCOPED_TRACE("seed " + std::to_string(m_seed));
  const auto pause_and_continue = [&](int rounds) {
    RenewServer();
    Serve("/f", Body(600'000)).Trickling(100'000);
    for (int round = 0; round < rounds && !HasFailure(); ++round) PauseSomewhere(round);
    RenewServer();
  };
  pause_and_continue(21);  // what is made once and kept
  const int before = OpenHandles();
  pause_and_continue(kRounds);
  const int allowed = before + HandlesThatComeAndGo();
  EXPECT_LE(SettledHandles(allowed), allowed);
  EXPECT_EQ(Observer().CountOf(kEventFinished), 0u);
}

// Nobody stops the job: the run that begins releases what the one before has left.
TEST_F(SlowPauses, RunsThatFollowEachOtherLeaveTheHandlesWhereTheyWere) {
  const auto fetch_again = [&](int runs) {
    RenewServer();
    Serve("/f", Body(6'000));
    for (int run = 0; run < runs && !HasFailure(); ++run) {
      ASSERT_TRUE(Start("/f", L"", true));
      ASSERT_EQ(AwaitResult(), kResultSuccess);
      ASSERT_TRUE(Job().RenewStopEvent());
    }
    RenewServer();
  };
  fetch_again(3);  // what is made once and kept
  const int before = OpenHandles();
  fetch_again(50);
  const int allowed = before + HandlesThatComeAndGo();
  EXPECT_LE(SettledHandles(allowed), allowed);
}

INSTANTIATE_TEST_SUITE_P(ThousandRounds, SlowPausesInTurns, testing::Range(0, 1'000 / kRounds));

}  // namespace
}  // namespace Tarnlo::test
