// Stopping a job, wherever it is: soon, without force, and without a word when it is silenced.
#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <thread>

#include "tests/engine/job_fixture.h"
#include "tests/faults/faults.h"
#include "transfer/current_job.h"

namespace Tarnlo::test {
namespace {

constexpr std::int64_t kSmall = 10'000;
constexpr char kStoppedInProbe[] = "T1 T3 T4 T5 T6 S1 S2 T7 T8 T10 F1 F16 T19 T22 T23 T2";

class StopTest : public JobTest {
 protected:
  void ExpectSilence() { EXPECT_EQ(Observer().CountOf(kEventFinished), 0u); }
};

TEST_F(StopTest, JobThatNeverRanStopsAtOnceAndTwice) {
  StopPromptly();
  EXPECT_FALSE(Job().HasStopEvent());
  StopPromptly();
}

// As early as a stop can come: some rounds end before the thread's first line, some on its first
// steps.
TEST_F(StopTest, RightAfterTheStartIsSilent) {
  Serve("/f", Body(kSmall));
  for (int round = 0; round < 50; ++round) {
    if (!Job().HasStopEvent()) {
      ASSERT_TRUE(Job().RenewStopEvent());
    }
    ASSERT_TRUE(Start("/f"));
    Pause();
    EXPECT_FALSE(Job().HasStopEvent());
    EXPECT_TRUE(Job().IsStopping());
    ExpectSilence();
  }
}

// On its very first lines, which it leaves only when the stop has been signalled.
TEST_F(StopTest, OnTheThreadsFirstLinesIsSilentAndAsksNobody) {
  Serve("/f", Body(kSmall));
  Observer().OnEach([](const TaskEvent& event) {
    while (event.type == kEventStarted && !CurrentThreadIsStopped()) std::this_thread::yield();
  });
  ASSERT_TRUE(Start("/f"));
  ASSERT_TRUE(Log().Await("ThreadProc_DownloadMTR 4"));
  Pause();
  ExpectSilence();
  EXPECT_EQ(JobLines(), kStoppedInProbe);
  EXPECT_TRUE(Server().RequestsFor("/f").empty());
}

TEST_F(StopTest, InTheProbeIsSilent) {
  Gate& gate = NewGate();
  Serve("/f", Body(kSmall)).HoldingAnswer(gate);
  ASSERT_TRUE(Start("/f"));
  ASSERT_TRUE(gate.AwaitArrivals());
  Pause();
  ExpectSilence();
  EXPECT_EQ(JobLines(), kStoppedInProbe);
  EXPECT_TRUE(Files().empty());
}

TEST_F(StopTest, DirectlyInTheFirstAttemptIsSilentToo) {
  Gate& gate = NewGate();
  Serve("/f", Body(kSmall)).HoldingAnswer(gate);
  ASSERT_TRUE(Start("/f"));
  ASSERT_TRUE(gate.AwaitArrivals());
  StopPromptly();
  ExpectSilence();
  EXPECT_EQ(JobLines(), kStoppedInProbe);
}

TEST_F(StopTest, InARedirectChainWithoutEndIsSilent) {
  Serve("/r", Body(0)).RedirectingTo("/r");
  ASSERT_TRUE(Start("/r"));
  ASSERT_TRUE(Server().AwaitConnections(10));
  Pause();
  ExpectSilence();
  EXPECT_EQ(JobLines(), kStoppedInProbe);
}

TEST_F(StopTest, BetweenProbeAndPlanIsSilentAndMakesNoFile) {
  Serve("/f", Body(kSmall));
  Observer().OnEach([](const TaskEvent& event) {
    while (event.type == kEventContentLength && !CurrentThreadIsStopped()) {
      std::this_thread::yield();
    }
  });
  ASSERT_TRUE(Start("/f"));
  ASSERT_TRUE(Observer().AwaitCount(kEventRemoteName, 1));
  Pause();
  ExpectSilence();
  EXPECT_EQ(JobLines(), "T1 T3 T4 T5 T6 S1 S3 T7 T8 T10 F1 F16 T19 T22 T23 T2");
  EXPECT_TRUE(Files().empty());
}

// The first block of the file arrives when the stop has been signalled.
TEST_F(StopTest, WhileTheTargetIsHashedIsSilentAndLeavesIt) {
  const Body body(kSmall);
  WriteFileBytes(Target(L"f"), body.Bytes(0, kSmall));
  Serve("/f", body);
  Job().SetMd5Check(true);
  Job().SetExpectedMd5(Md5Of(body));
  Faults faults;
  faults.HoldUntil(os::Call::kRead, &IsStoppedOrTheTests);
  ASSERT_TRUE(Start("/f"));
  ASSERT_TRUE(Log().Await("CDownloadManager StartMTRDownload 7"));
  Pause();
  ExpectSilence();
  EXPECT_EQ(JobLines(), "T1 T3 T4 T5 T6 S1 S5 S6 S7 T7 T8 T10 F1 F16 T19 T22 T23 T2");
  EXPECT_EQ(FileDifference(Target(L"f"), body), "");
}

TEST_F(StopTest, WhileWorkersReceiveIsSilentAndLeavesTheTrailer) {
  Gate& gate = NewGate();
  Serve("/f", Body(kSmall)).Times(1);
  Serve("/f", Body(kSmall)).StallingAfter(100, gate);
  ASSERT_TRUE(Start("/f"));
  ASSERT_TRUE(gate.AwaitArrivals(6));
  Pause();
  ExpectSilence();
  EXPECT_EQ(JobLines(),
            "T1 T3 T4 T5 T6 S1 S5 S12 S17 A1 A5 A7 A8 A9 A10 A9x5 A11x6 S22 T7 T12 "
            "F1 F16 T19 T22 T23 T2");
  EXPECT_EQ(ReadTrailer(Temporary(L"f"), kSmall).records.size(), 6u);
}

TEST_F(StopTest, InTheBackOffIsSilent) {
  Serve("/f", Body(0)).WithStatus("404 Not Found");
  Faults faults;
  faults.WatchWaits(1000, 60'000);  // between its looks, made long enough for any machine
  ASSERT_TRUE(Start("/f"));
  ASSERT_TRUE(Log().Await("ThreadProc_DownloadMTR 22"));
  Pause();
  ExpectSilence();
  const std::string lines = JobLines();
  EXPECT_TRUE(lines.starts_with("T1 T3 T4 T5 T6 S1 S2 T7 T8 T10 F1 F16 T19 T22")) << lines;
  EXPECT_TRUE(lines.ends_with(" T23 T2")) << lines;
  EXPECT_EQ(Server().RequestsFor("/f").size(), 1u);
}

// The run has told its end and is on its last lines.
TEST_F(StopTest, WhileItEndsTellsTheEndOnce) {
  Serve("/f", Body(kSmall));
  for (int round = 0; round < 10; ++round) {
    if (!Job().HasStopEvent()) {
      ASSERT_TRUE(Job().RenewStopEvent());
    }
    ASSERT_TRUE(Start("/f", L"", true));
    ASSERT_EQ(AwaitResult(), kResultSuccess);
    StopPromptly();
    EXPECT_EQ(Observer().CountOf(kEventFinished), static_cast<std::size_t>(round) + 1);
  }
}

TEST_F(StopTest, DestructionStops) {
  Gate& gate = NewGate();
  Serve("/f", Body(kSmall)).HoldingAnswer(gate);
  ASSERT_TRUE(Start("/f"));
  ASSERT_TRUE(gate.AwaitArrivals());
  RenewJob();
  ExpectSilence();
}

}  // namespace
}  // namespace Tarnlo::test
