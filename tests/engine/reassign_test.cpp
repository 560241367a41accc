// Who gets whose bytes when a connection has finished its own.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "engine/donor.h"
#include "engine/resume_trailer.h"
#include "tests/engine/table_fixture.h"
#include "tests/faults/faults.h"

namespace Tarnlo::test {
namespace {

constexpr std::int64_t kQuick = 10;  // bytes of the worker that finishes first

class ReassignTest : public TableTest {
 protected:
  // Worker 0 has finished; worker 1 runs and has `left` bytes to go.
  void StartWithDonor(std::int64_t left) {
    constexpr std::int64_t kReceived = 50'000;
    m_size = kQuick + kReceived + left;
    m_gate = &NewGate();
    Server().Serve("/quick", Body(m_size));
    Server().Serve("/stalls", Body(m_size)).StallingAfter(kReceived, *m_gate);
    Start({{"/quick", {0, kQuick, 0}}, {"/stalls", {kQuick, kReceived + left, 0}}});
    AwaitEndOf(0);
    AwaitRemaining(left);
  }
  void FinishAndCompare() {
    m_gate->Open();
    RunToTheEnd();
    EXPECT_TRUE(Table().AllRangesDone());
    EXPECT_EQ(Table().Remaining(true), 0);
    EXPECT_EQ(FileDifference(File(), Body(m_size)), "");
  }

  std::int64_t m_size = 0;
  Gate* m_gate = nullptr;
};

TEST_F(ReassignTest, DonorWith102399BytesLeftKeepsThem) {
  StartWithDonor(102'399);
  EXPECT_FALSE(Table().Reassign(0));
  EXPECT_TRUE(LengthsToldAgain().empty());
  Table().CloseThread(0);
  FinishAndCompare();
}

TEST_F(ReassignTest, DonorWith102400BytesLeftGivesItsLast51200) {
  StartWithDonor(102'400);
  EXPECT_TRUE(Table().Reassign(0));
  const std::vector<RangeRecord> records = Table().Records();
  EXPECT_EQ(records[0], (RangeRecord{m_size - 51'200, 51'200, 0}));
  EXPECT_EQ(records[1].start, kQuick);
  EXPECT_EQ(records[1].length, m_size - 51'200 - kQuick);
  // The new owner's length is told first.
  EXPECT_EQ(LengthsToldAgain(), (Lengths{{0, 51'200}, {1, records[1].length}}));
  FinishAndCompare();
}

TEST_F(ReassignTest, OddRestIsHalvedDownwards) {
  StartWithDonor(102'401);
  EXPECT_TRUE(Table().Reassign(0));
  EXPECT_EQ(Table().Records()[0].length, 51'200);
  FinishAndCompare();
}

TEST_F(ReassignTest, StalledDonorIsEatenUpToWhatIsNotWorthAConnection) {
  StartWithDonor(6'400'000);
  int given = 0;
  while (Table().Reassign(0)) {
    ++given;
    AwaitEndOf(0);
  }
  EXPECT_EQ(given, 6);  // 6,400,000 halved until less than 102,400 is left
  Table().CloseThread(0);
  FinishAndCompare();
}

TEST_F(ReassignTest, FailedWorkersWholeRestGoesFirst) {
  constexpr std::int64_t kFailing = 5'000;
  constexpr std::int64_t kRunning = 500'000;
  const Body body(kQuick + kFailing + kRunning);
  Gate& gate = NewGate();
  Server().Serve("/quick", body);
  Server().Serve("/fails", body).Times(2).ClosingAfter(1'000);  // then its thread ends
  Server().Serve("/fails", body);
  Server().Serve("/held", body).HoldingAnswer(gate);
  Start({{"/quick", {0, kQuick, 0}},
         {"/held", {kQuick + kFailing, kRunning, 0}},
         {"/fails", {kQuick, kFailing, 0}}});
  AwaitEndOf(0);
  AwaitEndOf(2);
  EXPECT_FALSE(Table().succeeded(2));
  const auto donor = Table().FindLargestRemaining();
  ASSERT_TRUE(donor.has_value());
  EXPECT_EQ(donor->index, 2);
  EXPECT_EQ(donor->remaining, 3'000);
  EXPECT_FALSE(donor->running);

  EXPECT_TRUE(Table().Reassign(0));
  const std::vector<RangeRecord> records = Table().Records();
  EXPECT_EQ(records[0], (RangeRecord{kQuick + 2'000, 3'000, 0}));
  EXPECT_EQ(records[2], (RangeRecord{kQuick, 2'000, 2'000}));
  EXPECT_TRUE(Table().succeeded(2));  // what it has left is covered
  EXPECT_EQ(LengthsToldAgain(), (Lengths{{0, 3'000}, {2, 2'000}}));
  gate.Open();
  RunToTheEnd();
  EXPECT_TRUE(Table().AllRangesDone());
  EXPECT_EQ(FileDifference(File(), body), "");
}

TEST_F(ReassignTest, FirstFailedWorkerWinsOverALargerOne) {
  const Body body(10'000);
  Server().Serve("/quick", body);
  Start({{"/quick", {0, kQuick, 0}}, {"/no", {10, 990, 0}}, {"/no", {1'000, 9'000, 0}}});
  for (const std::int32_t index : {0, 1, 2}) AwaitEndOf(index);
  EXPECT_EQ(Table().FindLargestRemaining()->index, 1);
  EXPECT_TRUE(Table().Reassign(0));
  AwaitEndOf(0);
  EXPECT_TRUE(Table().Reassign(0));
  EXPECT_EQ(Table().Records()[0], (RangeRecord{1'000, 9'000, 0}));
  AwaitEndOf(0);
  EXPECT_FALSE(Table().Reassign(0));
  EXPECT_TRUE(Table().AllRangesDone());
  EXPECT_EQ(Table().Remaining(true), 0);
  EXPECT_EQ(FileDifference(File(), body), "");
}

TEST_F(ReassignTest, EarliestOfTwoEqualRestsWins) {
  const Body body(kQuick + 400'000);
  Gate& gate = NewGate();
  Server().Serve("/quick", body);
  Server().Serve("/held", body).HoldingAnswer(gate);
  Start({{"/quick", {0, kQuick, 0}},
         {"/held", {kQuick, 200'000, 0}},
         {"/held", {kQuick + 200'000, 200'000, 0}}});
  AwaitEndOf(0);
  EXPECT_EQ(Table().FindLargestRemaining()->index, 1);
  gate.Open();
  RunToTheEnd();
  EXPECT_EQ(FileDifference(File(), body), "");
}

TEST_F(ReassignTest, OneConnectionHasNobodyToTakeFrom) {
  Server().Serve("/f", Body(100));
  Start({{"/f", {0, 100, 0}}});
  AwaitEndOf(0);
  EXPECT_FALSE(Table().FindLargestRemaining().has_value());
  EXPECT_FALSE(Table().Reassign(0));
}

// A worker may fail after its last byte was written: there is nothing left to give.
TEST_F(ReassignTest, CompleteRangeIsNeverGivenAgain) {
  constexpr std::int64_t kFailing = 100;
  constexpr std::int64_t kRunning = 200'000;
  const Body body(kQuick + kFailing + kRunning);
  Gate& gate = NewGate();
  Server().Serve("/f", body);
  Server().Serve("/held", body).HoldingAnswer(gate);
  FailAfterTheLastByte(1);
  Start({{"/f", {0, kQuick, 0}},
         {"/f", {kQuick, kFailing, 0}},
         {"/held", {kQuick + kFailing, kRunning, 0}}});
  AwaitEndOf(0);
  AwaitEndOf(1);
  EXPECT_FALSE(Table().succeeded(1));
  const auto donor = Table().FindLargestRemaining();
  ASSERT_TRUE(donor.has_value());
  EXPECT_EQ(donor->index, 2);
  EXPECT_TRUE(Table().Reassign(0));
  EXPECT_EQ(Table().Records()[1], (RangeRecord{kQuick, kFailing, kFailing}));
  EXPECT_FALSE(Table().AllRangesDone());
  gate.Open();
  RunToTheEnd();
  EXPECT_FALSE(Table().succeeded(1));
  EXPECT_TRUE(Table().AllRangesDone());
  EXPECT_FALSE(Table().FindLargestRemaining().has_value());
  EXPECT_EQ(FileDifference(File(), body), "");
}

// Its record still has what was there before, which may be more than the cut leaves.
TEST_F(ReassignTest, RangeThatBeganAgainAndIsCutHasNoMoreDoneThanItsLength) {
  constexpr std::int64_t kLength = 400'000;
  const Body body(kLength + kQuick);
  Gate& gate = NewGate();
  Server().Serve("/quick", body);
  Server().Serve("/whole", body).IgnoringRanges().StallingAfter(0, gate);
  Start({{"/quick", {kLength, kQuick, 0}}, {"/whole", {0, kLength, 350'000}}});
  AwaitEndOf(0);
  AwaitRemaining(kLength);
  EXPECT_TRUE(Table().Reassign(0));
  const std::vector<RangeRecord> records = Table().Records();
  EXPECT_EQ(records[1].length, kLength / 2);
  EXPECT_LE(records[1].done, records[1].length);
  EXPECT_TRUE(ValidRecords(records, body.size()));
  gate.Open();
  for (const std::int32_t index : {0, 1}) AwaitEndOf(index);
  EXPECT_TRUE(Table().AllRangesDone());
  EXPECT_EQ(FileDifference(File(), body), "");
}

// --- Cuts that the donor does not accept --------------------------------------------------------

class RefusedCut : public testing::Test {
 protected:
  // Worker 0 takes from worker 1, which gets on and has less left at each look; the answers to what
  // is handed over then.
  std::optional<Donor> Take(const std::vector<std::int64_t>& left,
                            const std::vector<Handover>& answers) {
    std::size_t look = 0;
    const auto find = [&] { return std::optional(Donor{1, left.at(look++), true}); };
    return TakeFromDonor(0, find, [&](const Donor& donor) {
      m_offered.push_back(donor.remaining);
      return answers.at(m_offered.size() - 1);
    });
  }

  std::vector<std::int64_t> m_offered;
};

TEST_F(RefusedCut, IsMadeAgainFromWhatTheDonorHasLeftNow) {
  const std::vector<std::int64_t> left = {400'000, 300'000, 200'000};
  const auto donor = Take(left, {Handover::kTryAgain, Handover::kTryAgain, Handover::kDone});
  ASSERT_TRUE(donor.has_value());
  EXPECT_EQ(donor->index, 1);
  EXPECT_EQ(donor->remaining, 200'000);
  EXPECT_EQ(m_offered, left);
}

TEST_F(RefusedCut, IsNotMadeAgainWhenThereIsNothingToGive) {
  EXPECT_FALSE(Take({400'000, 100'000}, {Handover::kTryAgain, Handover::kNothing}).has_value());
  EXPECT_EQ(m_offered, (std::vector<std::int64_t>{400'000, 100'000}));
}

// --- New owners that cannot be started ----------------------------------------------------------

class RefusedStart : public ReassignTest {
 protected:
  // What the cut took from worker 1 waits, and goes to whoever is free first, which is worker 1.
  void ExpectTheCutToBeFetchedByTheDonor() {
    Table().CloseThread(0);
    const RangeRecord cut = Table().Records()[0];
    EXPECT_EQ(cut, (RangeRecord{m_size - 51'200, 51'200, 0}));
    EXPECT_FALSE(Table().succeeded(0));
    EXPECT_FALSE(Table().AllRangesDone());
    EXPECT_TRUE(Table().succeeded(1));
    const auto waiting = Table().FindLargestRemaining();
    ASSERT_TRUE(waiting.has_value());
    EXPECT_EQ(waiting->index, 0);
    EXPECT_EQ(waiting->remaining, 51'200);
    EXPECT_FALSE(waiting->running);
    EXPECT_EQ(RunToTheEnd(), 1);
    EXPECT_EQ(Table().Records()[1], (RangeRecord{cut.start, cut.length, cut.length}));
    EXPECT_TRUE(Table().AllRangesDone());
    EXPECT_EQ(Table().Remaining(true), 0);
    EXPECT_EQ(FileDifference(File(), Body(m_size)), "");
    EXPECT_EQ(m_faults.Failed(), 1);
  }

  Faults m_faults;
};

TEST_F(RefusedStart, LeavesTheBytesBeyondTheCutToTheDonorWhenItGetsThere) {
  StartWithDonor(102'400);
  m_faults.Fail(os::Call::kThread);
  EXPECT_FALSE(Table().Reassign(0));
  EXPECT_EQ(Table().Remaining(true), 102'400);
  m_gate->Open();
  AwaitEndOf(1);
  ExpectTheCutToBeFetchedByTheDonor();
}

// The cut is made, and the new owner is about to be told its length.
TEST_F(RefusedStart, LeavesTheBytesBeyondTheCutToTheDonorThatHasEndedThereMeanwhile) {
  const auto reassigning = std::make_shared<std::atomic<bool>>(false);
  Observer().OnEach([this, reassigning](const TaskEvent& event) {
    if (!*reassigning || event.type != kEventRangeLength || event.code != 0) return;
    *reassigning = false;
    m_gate->Open();
    AwaitEndOf(1);
    m_faults.Fail(os::Call::kThread);
  });
  StartWithDonor(102'400);
  *reassigning = true;
  EXPECT_FALSE(Table().Reassign(0));
  EXPECT_EQ(Table().Remaining(true), 51'200);
  ExpectTheCutToBeFetchedByTheDonor();
}

TEST_F(RefusedStart, LeavesTheRestOfAFailedWorkerToTheNextOne) {
  const Body body(10'000);
  Server().Serve("/f", body);
  Start({{"/f", {0, kQuick, 0}}, {"/f", {kQuick, 990, 0}}, {"/no", {1'000, 9'000, 0}}});
  for (const std::int32_t index : {0, 1, 2}) AwaitEndOf(index);
  m_faults.Fail(os::Call::kThread);
  EXPECT_FALSE(Table().Reassign(0));
  Table().CloseThread(0);
  Table().CloseThread(2);
  EXPECT_TRUE(Table().succeeded(2));  // has nothing of its own left
  EXPECT_EQ(Table().FindLargestRemaining()->index, 0);
  EXPECT_EQ(RunToTheEnd(), 1);
  EXPECT_EQ(Table().Records()[1], (RangeRecord{1'000, 9'000, 9'000}));
  EXPECT_TRUE(Table().AllRangesDone());
  EXPECT_EQ(FileDifference(File(), body), "");
}

// The same in a job.
class RefusedStartOfAJob : public JobTest {
 protected:
  static constexpr std::int64_t kSize = 6 * 200'000;
  static constexpr std::int64_t kStall = 10'000;

  // One worker's range comes; the others' stop until the gate is open. At the first hand-over the
  // thread is refused.
  void StartWithOneQuickWorker() {
    Serve("/f", Body(kSize)).Times(1);
    Serve("/f", Body(kSize)).ForPieces().Times(1);
    Serve("/f", Body(kSize)).ForPieces().StallingAfter(kStall, m_gate);
    Observer().OnEach([this](const TaskEvent& event) {
      if (event.type != kEventRangeLength || ++m_lengths != 7) return;
      if (m_before_the_refusal) m_before_the_refusal(event.payload);
      m_faults.Fail(os::Call::kThread);
    });
    ASSERT_TRUE(Start("/f"));
  }
  void ExpectTheFileInOneAttempt() {
    EXPECT_EQ(AwaitResult(), kResultSuccess);
    AwaitRunEnd();
    ExpectOneCleanAttempt();
    EXPECT_EQ(FileDifference(Target(L"f"), Body(kSize)), "");
    EXPECT_EQ(m_faults.Failed(), 1);
    // Every byte once, the cut one over another connection.
    std::vector<Interval> asked = RangesAskedFor();
    EXPECT_EQ(Merged(asked), (std::vector<Interval>{{0, kSize}}));
    EXPECT_GE(asked.size(), 7u);
  }

  Faults m_faults;
  Gate& m_gate = NewGate();
  std::atomic<int> m_lengths{0};
  std::function<void(std::int64_t length)> m_before_the_refusal;
};

TEST_F(RefusedStartOfAJob, CostsNoAttempt) {
  StartWithOneQuickWorker();
  ASSERT_TRUE(Observer().AwaitCount(kEventRangeLength, 8));  // the cut one's too
  m_gate.Open();
  ExpectTheFileInOneAttempt();
}

TEST_F(RefusedStartOfAJob, CostsNoAttemptWhenAllElseHasComeMeanwhile) {
  m_before_the_refusal = [this](std::int64_t cut) {
    m_gate.Open();
    AwaitDownloaded(kSize - cut);
  };
  StartWithOneQuickWorker();
  ExpectTheFileInOneAttempt();
}

// --- What the job reports meanwhile --------------------------------------------------------------

class ProgressReports : public JobTest {};

TEST_F(ProgressReports, NeverFallAndAre100MsApart) {
  constexpr std::int64_t kSize = 3'000'000;
  Serve("/f", Body(kSize)).Times(3).Trickling(200'000);  // the probe and two slow workers
  Serve("/f", Body(kSize)).Trickling(900'000);
  EXPECT_EQ(Download("/f"), kResultSuccess);
  ExpectOneCleanAttempt();
  EXPECT_EQ(FileDifference(Target(L"f"), Body(kSize)), "");
  EXPECT_GT(Observer().CountOf(kEventRangeLength), 6u) << "no range changed hands";

  const auto reports = Observer().EventsOf(kEventProgress);
  const auto stamps = Observer().StampsOf(kEventProgress);
  ASSERT_GE(reports.size(), 3u);
  EXPECT_TRUE(std::ranges::any_of(
      reports, [](const RecordedEvent& report) { return report.progress.speed > 0; }));
  for (std::size_t i = 0; i < reports.size(); ++i) {
    const TaskProgress& report = reports[i].progress;
    EXPECT_EQ(reports[i].code, kWholeJob);
    EXPECT_EQ(report.task_id, kTaskId);
    EXPECT_EQ(report.total, kSize);
    EXPECT_LE(report.downloaded, kSize);
    EXPECT_EQ(report.speed % 1000, 0u);
    if (i == 0) continue;
    EXPECT_GE(report.downloaded, reports[i - 1].progress.downloaded);
    EXPECT_GE(stamps[i].tick - stamps[i - 1].tick, 100u);
  }
}

}  // namespace
}  // namespace Tarnlo::test
