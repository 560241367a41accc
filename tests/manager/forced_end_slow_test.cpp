// Callbacks that do not come back: what waits for them gives up, or ends their threads by force,
// and nothing of the library is held by them.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdint>

#include "support/os/clock.h"
#include "support/os/thread.h"
#include "tests/faults/faults.h"
#include "tests/manager/manager_fixture.h"

namespace Tarnlo {
namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr std::uint32_t kNeverMs = 0x7FFFFFFF;

class SlowForcedEnd : public test::ManagerTest {
 protected:
  // On a thread of task 7, once.
  void GetStuck(std::int32_t id) {
    if (id == 7 && !m_stuck.exchange(true)) os::SleepMs(kNeverMs);
  }
  // Since the test began.
  [[nodiscard]] std::uint32_t ForcedEnds() const { return os::ForcedEnds() - m_forced; }
  // The pause of the task that is stuck in a callback.
  void ExpectPauseByForceAfter(milliseconds least) {
    test::Gate others;
    // The others wait for their answers, where a stop finds them at once.
    m_server.Serve("/one", kBody).ForPieces().Times(1);
    m_server.Serve("/one", kBody).ForPieces().HoldingAnswer(others);
    m_server.Serve("/one", kBody);
    ASSERT_EQ(Add(7, "/one"), 7);
    while (!m_stuck) os::SleepMs(1);
    const auto begin = steady_clock::now();
    EXPECT_EQ(m_manager->PauseTask(7), 1);
    EXPECT_GE(steady_clock::now() - begin, least);
    EXPECT_GE(ForcedEnds(), 1u);
    others.Open();
  }
  // Everything that can be done to tasks is done to this one and to another.
  void ExpectThatEverythingStillWorks() {
    m_manager->SetCallBack(&m_callback);
    EXPECT_EQ(Add(8, "/stalled"), 8);
    EXPECT_EQ(m_manager->PauseTask(8), 1);
    EXPECT_EQ(m_manager->CancelTask(8), 1);
    TaskProgressInfo info;
    EXPECT_EQ(m_manager->GetTaskProgress(7, &info), 1);
    EXPECT_EQ(m_manager->ContinueTask(7), 1);
    EXPECT_TRUE(m_callback.Await("OnTaskComplete 7"));
    EXPECT_EQ(test::FileDifference(m_folder.File(L"one"), kBody), "");
    EXPECT_EQ(m_manager->CancelTask(7), 1);
    EXPECT_EQ(m_manager->GetTaskCount(), 0);
  }

 private:
  const std::uint32_t m_forced = os::ForcedEnds();
  std::atomic<bool> m_stuck{false};
};

TEST_F(SlowForcedEnd, JobThatDoesNotComeBackIsEndedAfterFiveSeconds) {
  m_callback.on_start = [this](std::int32_t id) { GetStuck(id); };
  ExpectPauseByForceAfter(milliseconds(4900));
  EXPECT_EQ(ForcedEnds(), 1u);
  ExpectThatEverythingStillWorks();
}

TEST_F(SlowForcedEnd, WorkerThatDoesNotComeBackIsEndedAfterOneSecond) {
  constexpr std::int32_t kRangeProgress = 1;
  m_callback.on_stage = [this](std::int32_t id, std::int32_t, std::int32_t stage) {
    if (stage == kRangeProgress) GetStuck(id);
  };
  ExpectPauseByForceAfter(milliseconds(900));
  EXPECT_EQ(ForcedEnds(), 1u);
  ExpectThatEverythingStillWorks();
}

TEST_F(SlowForcedEnd, JobThatDoesNotComeBackWithTheServersLengthIsEndedAfterFiveSeconds) {
  m_callback.on_value = [this](std::int32_t id) { GetStuck(id); };
  ExpectPauseByForceAfter(milliseconds(4900));
  EXPECT_EQ(ForcedEnds(), 1u);
  ExpectThatEverythingStillWorks();
}

// The one who was telling progress would have let the others tell it afterwards. They may be ended
// too, on a machine that gives them no processor for a second.
TEST_F(SlowForcedEnd, ProgressIsToldAgainAfterOneWhoDidNotComeBackFromIt) {
  constexpr std::uint32_t kProgressIntervalMs = 100;
  m_callback.on_value = [](std::int32_t) {
    const std::uint32_t begin = os::TickMs();
    while (os::TickMs() - begin <= kProgressIntervalMs) os::SleepMs(1);
  };
  m_callback.on_progress = [this](std::int32_t id) { GetStuck(id); };
  ExpectPauseByForceAfter(milliseconds(900));
  EXPECT_EQ(m_callback.Count("OnTaskProgress 7"), 1);
  ExpectThatEverythingStillWorks();
  EXPECT_GE(m_callback.Count("OnTaskProgress 7"), 2);
}

TEST_F(SlowForcedEnd, TaskWhoseCallbackOfTheEndDoesNotComeBackIsNotStartedAgain) {
  test::Gate in_callback;
  m_callback.on_complete = [&](std::int32_t) { test::WaitAt(in_callback); };
  ASSERT_EQ(Add(7, "/f"), 7);
  ASSERT_TRUE(in_callback.AwaitArrivals());
  EXPECT_EQ(m_manager->ContinueTask(7), 0);
  in_callback.Open();
  EXPECT_EQ(m_manager->PauseTask(7), 1);
  EXPECT_EQ(m_callback.Count("OnTaskStart 7"), 1);
}

// A worker's callback pauses another task, which takes its time, when the worker's own job ends its
// workers since it cannot start them all.
TEST_F(SlowForcedEnd, WorkerInsideAnOperationIsNotEndedBeforeTheOperationIsOver) {
  constexpr std::uint32_t kSlowToStopMs = 3000;
  std::atomic<bool> stopping_is_slow{false};
  std::atomic<bool> asked{false};
  std::atomic<int> answered{-1};
  test::Faults faults;
  m_callback.on_start = [&](std::int32_t id) {
    if (id != 8) return;
    stopping_is_slow = true;
    os::SleepMs(kSlowToStopMs);
  };
  m_callback.on_stage = [&](std::int32_t id, std::int32_t worker, std::int32_t stage) {
    if (id != 7) return;
    if (worker == 0 && stage != 0 && !asked.exchange(true)) answered = m_manager->PauseTask(8);
    if (worker == 1 && stage == 0 && answered < 0) {
      while (!asked) os::SleepMs(1);
      faults.Fail(os::Call::kThread);  // the one that is about to be started
    }
  };
  ASSERT_EQ(Add(8, "/stalled"), 8);
  while (!stopping_is_slow) os::SleepMs(1);
  ASSERT_EQ(Add(7, "/f"), 7);
  EXPECT_TRUE(m_callback.Await("OnTaskComplete 7"));
  EXPECT_EQ(test::FileDifference(m_folder.File(L"f"), kBody), "");
  EXPECT_GE(faults.Failed(), 1);
  // Nothing is held, whether the worker came to its end or was ended after the operation.
  EXPECT_EQ(m_manager->PauseTask(99), 1);
  TaskProgressInfo info;
  EXPECT_EQ(m_manager->GetTaskProgress(8, &info), 1);
  EXPECT_NE(answered, 0);
}

}  // namespace
}  // namespace Tarnlo
