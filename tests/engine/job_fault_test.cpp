// What the system refuses a job: each result that comes of it, what is left, and that the next run
// completes the file. The pauses are a twentieth of their length.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdint>
#include <initializer_list>
#include <mutex>
#include <numeric>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "support/os/clock.h"
#include "support/os/wait.h"
#include "tests/engine/job_fixture.h"
#include "tests/faults/faults.h"

namespace Tarnlo::test {
namespace {

using os::Call;

constexpr std::int64_t kSmall = 10'000;
constexpr char kPlanned[] = "A1 A5 A7 A8 A9 A10 A9x5 A11x6 S22 T7 T12 ";
constexpr char kFinished[] = "T13 T14 F2 F3 F4 F5 F7 F9 F15 T19 T20 T2";

std::string Lines(std::initializer_list<std::string> parts) {
  std::string all;
  for (const std::string& part : parts) all += part;
  return all;
}

class JobFaultTest : public JobTest {
 protected:
  JobFaultTest() {
    m_faults.DivideWaits(20);
    Serve("/f", Body(kSmall));
  }
  ~JobFaultTest() override { Pause(); }

  // Arms the faults when the length is known, on the job's thread: the probe is over, and what
  // comes next is files.
  template <typename Action>
  void OnceTheLengthIsKnown(Action arm) {
    Observer().OnEach([arm, times = 0](const TaskEvent& event) mutable {
      if (event.type == kEventContentLength) arm(++times);
    });
  }
  std::int32_t Run() {
    EXPECT_TRUE(Start("/f"));
    const std::int32_t result = AwaitResult();
    AwaitRunEnd();
    EXPECT_EQ(Observer().CountOf(kEventFinished), 1u);
    return result;
  }
  // The job's thread asked for these, one after the other.
  void ExpectWaits(std::initializer_list<std::uint32_t> wanted) {
    const auto started = Observer().StampsOf(kEventStarted);
    ASSERT_FALSE(started.empty());
    const std::vector<std::uint32_t> waits = m_faults.WaitsOf(started.back().thread);
    const auto found = std::search(waits.begin(), waits.end(), wanted.begin(), wanted.end());
    EXPECT_NE(found, waits.end()) << testing::PrintToString(waits);
  }
  // What the job's thread asked for between its attempts, which here lasts a twentieth. The log has
  // a line for each of the three turns, and for no other.
  void ExpectOnePauseOfThreeSeconds() {
    ExpectWaits({100, 1000, 100, 1000, 100, 1000});
    EXPECT_NE(JobLines().find(" T19 T22x3 T6 "), std::string::npos) << JobLines();
  }
  void ExpectTarget() const {
    EXPECT_EQ(FileDifference(Target(L"f"), Body(kSmall)), "");
    EXPECT_EQ(Files(), std::vector<std::wstring>{L"f"});
  }
  // The next run, undisturbed.
  void ExpectTheNextRunCompletes() {
    Observer().OnEach(nullptr);
    EXPECT_EQ(DownloadAgain("/f"), kResultSuccess);
    ExpectOneCleanAttempt();
    ExpectTarget();
  }

  Faults m_faults;
};

TEST_F(JobFaultTest, TemporaryFileThatIsNotCreatedTwiceIs9) {
  OnceTheLengthIsKnown([&](int) { m_faults.Fail(Call::kOpenFile, 3); });  // after two looks
  EXPECT_EQ(Run(), kResultFileFailed);
  ExpectOnePauseOfThreeSeconds();
  EXPECT_EQ(JobLines(),
            "T1 T3 T4 T5 T6 S1 S5 S12 S17 S20 T7 T8 T10 F1 F16 T19 T22x3 "
            "T6 S1 S5 S12 S17 S20 T7 T8 T10 F1 F16 T19 T20 T2");
  EXPECT_TRUE(Files().empty());
  ExpectTheNextRunCompletes();
}

TEST_F(JobFaultTest, TemporaryFileWhoseEndIsNotReachedIs9) {
  OnceTheLengthIsKnown([&](int) { m_faults.Fail(Call::kSeek); });
  EXPECT_EQ(Run(), kResultFileFailed);
  EXPECT_TRUE(Files().empty());
  ExpectTheNextRunCompletes();
}

TEST_F(JobFaultTest, TemporaryFileThatCannotBeExtendedTwiceIs10) {
  OnceTheLengthIsKnown([&](int) { m_faults.Fail(Call::kSetEnd); });
  EXPECT_EQ(Run(), kResultNoSpace);
  ExpectOnePauseOfThreeSeconds();
  EXPECT_EQ(JobLines(),
            "T1 T3 T4 T5 T6 S1 S5 S12 S17 S19 T7 T8 T10 F1 F16 T19 T22x3 "
            "T6 S1 S5 S12 S17 S19 T7 T8 T10 F1 F16 T19 T20 T2");
  EXPECT_TRUE(Files().empty());
  ExpectTheNextRunCompletes();
}

TEST_F(JobFaultTest, SecondAttemptMayHaveRoom) {
  OnceTheLengthIsKnown([&](int attempt) {
    if (attempt == 1) m_faults.Fail(Call::kSetEnd);
  });
  EXPECT_EQ(Run(), kResultSuccess);
  ExpectTarget();
}

// A host in the same program may let anything out of what it is told. Run counts the ends.
TEST_F(JobFaultTest, WhatComesOutOfTheReportOfTheStartEndsTheRun) {
  Observer().ThrowOutOf(kEventStarted);
  EXPECT_EQ(Run(), kResultWaitFailed);
  EXPECT_EQ(JobLines(), "T1 T3 T4 T2");
}

TEST_F(JobFaultTest, WhatComesOutOfTheReportOfTheEndDoesNotRepeatIt) {
  Observer().ThrowOutOf(kEventFinished);
  EXPECT_EQ(Run(), kResultSuccess);
  ExpectTarget();
}

// Two workers run when the third cannot be started; they are stopped before the trailer is written.
TEST_F(JobFaultTest, WorkerThatCannotBeStartedTwiceIs6) {
  Observer().OnEach([&](const TaskEvent& event) {
    if (event.type == kEventRangeLength && event.code == 2) m_faults.Fail(Call::kThread);
  });
  EXPECT_EQ(Run(), kResultAssignmentFailed);
  ExpectOnePauseOfThreeSeconds();
  const std::string lines = JobLines();
  EXPECT_TRUE(
      lines.starts_with("T1 T3 T4 T5 T6 S1 S5 S12 S17 A1 A5 A7 A8 A9 A10 A9x5 A11x3 A12 S21 "
                        "T7 T8 T10 F1 F16 T19 T22x3 T6 "))
      << lines;
  EXPECT_TRUE(lines.ends_with("A11x3 A12 S21 T7 T8 T10 F1 F16 T19 T20 T2")) << lines;
  const Trailer trailer = ReadTrailer(Temporary(L"f"), kSmall);
  ASSERT_EQ(trailer.count, 6u);
  for (const RangeRecord& record : trailer.records) {
    EXPECT_EQ(
        FileDifference(Temporary(L"f"), Body(kSmall), record.start, record.start + record.done),
        "");
  }
  EXPECT_EQ(trailer.records[2].done, 0);
  EXPECT_EQ(trailer.records[5].done, 0);
  ExpectTheNextRunCompletes();
}

// What the first two have collected is in no file while they run.
TEST_F(JobFaultTest, WorkersThatWereStartedAreStoppedBeforeTheTrailerIsWritten) {
  const Body body(600'000);
  constexpr std::int64_t kEach = 30'000;  // more than comes with an answer's head
  Serve("/g", body).Times(1);
  Serve("/g", body).StallingAfter(kEach, NewGate());
  m_faults.WatchWaits(1000, os::kForever);  // between the attempts
  Observer().OnEach([&](const TaskEvent& event) {
    if (event.type != kEventRangeLength || event.code != 2) return;
    AwaitDownloaded(2 * kEach);
    m_faults.Fail(Call::kThread);
  });
  ASSERT_TRUE(Start("/g"));
  ASSERT_TRUE(Log().Await("ThreadProc_DownloadMTR 22"));
  Pause();
  const Trailer trailer = ReadTrailer(Temporary(L"g"), body.size());
  ASSERT_EQ(trailer.records.size(), 6u);
  EXPECT_GE(body.size() - trailer.MissingBytes(), 2 * kEach);
  for (const RangeRecord& record : trailer.records) {
    EXPECT_EQ(FileDifference(Temporary(L"g"), body, record.start, record.start + record.done), "");
  }
}

TEST_F(JobFaultTest, WaitThatCannotBeMadeTwiceIs15) {
  Gate& gate = NewGate();
  RenewServer();
  Serve("/f", Body(kSmall)).StallingAfter(100, gate);
  Observer().OnEach([&](const TaskEvent& event) {  // the last worker is about to start
    if (event.type == kEventRangeLength && event.code == 5) m_faults.Fail(Call::kWait);
  });
  EXPECT_EQ(Run(), kResultWaitFailed);
  ExpectOnePauseOfThreeSeconds();
  const std::string lines = JobLines();
  EXPECT_TRUE(lines.ends_with("A11x6 S22 T7 T12 F1 F16 T19 T20 T2")) << lines;
  EXPECT_EQ(ReadTrailer(Temporary(L"f"), kSmall).count, 6u);
  gate.Open();
  ExpectTheNextRunCompletes();
}

TEST_F(JobFaultTest, RestartThatFailsGoesOnInTheSecondAttempt) {
  Serve("/g", Body(kSmall)).ForPieces().ClosingAfter(100);
  Serve("/g", Body(kSmall));
  WriteFileBytes(Temporary(L"g"), "old");
  EXPECT_EQ(Download("/g", L"", true), kResultTooFewBytes);
  EXPECT_EQ(JobLines(),
            Lines({"T1 T3 T4 T5 T6 S1 S4 S17 ", kPlanned, "F1 F16 T19 T22x3 T6 S1 S5 S12 S13 S14 ",
                   "S15 R1 R2 R3 R4 R5 R6 R7 R8 S16 A1 A11x6 S22 T7 T12 F1 F16 T19 T20 T2"}));
}

// One connection was made for the first attempt, and one it stays; a later run has six again.
TEST_F(JobFaultTest, RangesHonouredOnlyInTheSecondAttemptAreOneThatNoRunResumes) {
  const Body body(kSmall);
  Gate& gate = NewGate();
  Serve("/g", body).Times(2).IgnoringRanges();  // what it has, whether ranges
  Serve("/g", body).Times(1);
  Serve("/g", body).StallingAfter(100, gate);
  Observer().OnEach([&, times = 0](const TaskEvent& event) mutable {
    if (event.type == kEventRangeLength && ++times == 1) m_faults.Fail(Call::kThread);
  });
  ASSERT_TRUE(Start("/g"));
  ASSERT_TRUE(gate.AwaitArrivals());
  Pause();
  const std::string lines = JobLines();
  EXPECT_NE(lines.find(" A11 A12 S21 T7 T8 T10 F1 F16 T19 T22x3 T6 S1 S5 S12 S13 S14 S17 A1 A5 A7 "
                       "A8 A9 A10 A11 S22 "),
            std::string::npos)
      << lines;
  EXPECT_EQ(ReadTrailer(Temporary(L"g"), kSmall).count, 1u);
  // After what each attempt's probe has asked.
  EXPECT_EQ(Server().RequestsFor("/g").at(3).AskedRange(), (Interval{0, kSmall}));

  gate.Open();
  ASSERT_TRUE(Continue("/g"));
  EXPECT_EQ(AwaitResult(), kResultSuccess);
  AwaitRunEnd();
  EXPECT_EQ(JobLines(), Lines({"T1 T3 T4 T5 T6 S1 S5 S12 S13 S14 S17 ", kPlanned, kFinished}));
  EXPECT_EQ(FileDifference(Target(L"g"), body), "");
}

// A stop that nobody has silenced, in the second attempt, is told. The first block of the file
// arrives when it has been signalled.
class StopWhileHashing : public JobFaultTest {
 protected:
  StopWhileHashing() {
    Serve("/g", Body(0)).Times(1).WithStatus("404 Not Found");
    Serve("/g", Body(kSmall));
    Job().SetMd5Check(true);
    Job().SetExpectedMd5(std::wstring(32, L'0'));
    m_faults.HoldUntil(Call::kRead, &IsStoppedOrTheTests);
  }
  void ExpectAToldStopAfter(const char* hashing, const std::string& second_attempt) {
    ASSERT_TRUE(Start("/g"));
    ASSERT_TRUE(Log().Await(hashing));
    StopPromptly();
    EXPECT_EQ(AwaitResult(), kResultStopped);
    EXPECT_EQ(Observer().CountOf(kEventFinished), 1u);
    EXPECT_EQ(JobLines(), Lines({"T1 T3 T4 T5 T6 S1 S2 T7 T8 T10 F1 F16 T19 T22x3 T6 ",
                                 second_attempt, "F16 T19 T20 T2"}));
  }
};

TEST_F(StopWhileHashing, TheTargetThatIsThereIs13AndKeepsBothFiles) {
  WriteFileBytes(Target(L"g"), "old");
  WriteFileBytes(Temporary(L"g"), "an earlier run's");
  ExpectAToldStopAfter("CDownloadManager StartMTRDownload 7", "S1 S5 S6 S7 T7 T8 T10 F1 ");
  EXPECT_EQ(ReadFileBytes(Target(L"g")), "old");
  EXPECT_EQ(ReadFileBytes(Temporary(L"g")), "an earlier run's");
}

TEST_F(StopWhileHashing, TheFileThatWasFetchedIs13AndKeepsIt) {
  ExpectAToldStopAfter("CDownloadManager HandleDownloadFinished 11",
                       Lines({"S1 S5 S12 S17 ", kPlanned, "T13 T14 F2 F3 F4 F5 F7 F9 F10 F11 "}));
  EXPECT_EQ(Files(), std::vector<std::wstring>{L"g"});
  EXPECT_EQ(FileDifference(Target(L"g"), Body(kSmall)), "");
}

// The bytes are there; only the last step fails, and costs no byte.
class FinishFaultTest : public JobFaultTest {
 protected:
  // The last range's last byte: only the finish is to come.
  template <typename Action>
  void AtTheEnd(Action arm) {
    Observer().OnEach([this, arm](const TaskEvent& event) {
      if (event.type != kEventRangeProgress) return;
      const std::lock_guard guard(m_mutex);
      m_done.at(static_cast<std::size_t>(event.code)) = event.payload;
      if (std::accumulate(m_done.begin(), m_done.end(), std::int64_t{0}) != kSmall) return;
      if (!std::exchange(m_armed, true)) arm();
    });
  }
  void ExpectTwoFailedEnds(const std::string& end) {
    EXPECT_EQ(Run(), kResultFileFailed);
    ExpectOnePauseOfThreeSeconds();
    EXPECT_EQ(JobLines(),
              Lines({"T1 T3 T4 T5 T6 S1 S5 S12 S17 ", kPlanned, end, "T22x3 T6 S1 S5 S12 S13 S14 ",
                     "S15 R1 R2 R3 R4 R5 R6 R7 R8 S16 A1 A11x6 S22 T7 T12 ", end, "T20 T2"}));
    EXPECT_EQ(ReadTrailer(Temporary(L"f"), kSmall).MissingBytes(), 0);
    EXPECT_EQ(FileDifference(Temporary(L"f"), Body(kSmall), 0, kSmall), "");
    const std::size_t asked = RangesAskedFor().size();
    ExpectTheNextRunCompletes();
    EXPECT_EQ(RangesAskedFor().size(), asked);
  }
  // After so many refused calls, and without fetching a byte again.
  void ExpectTheNextAttemptToFinish(const std::string& first_end, int refused) {
    EXPECT_EQ(Run(), kResultSuccess);
    EXPECT_EQ(m_faults.Failed(), refused);
    const std::string lines = JobLines();
    EXPECT_NE(lines.find(first_end), std::string::npos) << lines;
    EXPECT_EQ(RangesAskedFor().size(), 6u);
    ExpectTarget();
  }

 private:
  std::mutex m_mutex;
  std::array<std::int64_t, 6> m_done{};
  bool m_armed = false;
};

TEST_F(FinishFaultTest, RenameThatIsRefusedFourTimesInBothAttemptsIs9AndCostsNoByte) {
  m_faults.Fail(Call::kRename, 1, 8);
  ExpectTwoFailedEnds("T13 T14 F2 F3 F4 F5 F6 F16 T19 ");
  EXPECT_EQ(m_faults.Calls(Call::kRename), 9);
}

// A file that is held when its data is to be flushed has its trailer written all the same.
TEST_F(FinishFaultTest, RenameThatIsRefusedAndAFlushThatCannotOpenTheFileCostNoByte) {
  m_faults.Fail(Call::kRename, 1, 4);
  AtTheEnd([&] { m_faults.Fail(Call::kOpenFile, 2); });  // the first is the cut's
  ExpectTheNextAttemptToFinish("F2 F3 F4 F5 F6 F16 T19 T22x3 T6 ", 5);
}

TEST_F(FinishFaultTest, NoThreadForTheFlushCostsNoByte) {
  m_faults.Fail(Call::kRename, 1, 4);
  AtTheEnd([&] { m_faults.Fail(Call::kThread); });
  ExpectTheNextAttemptToFinish("F2 F3 F4 F5 F6 F16 T19 T22x3 T6 ", 5);
}

TEST_F(FinishFaultTest, RenameThatSucceedsTheFourthTimeIsAFinishedFile) {
  m_faults.Fail(Call::kRename, 1, 3);
  EXPECT_EQ(Run(), kResultSuccess);
  ExpectWaits({200, 400, 800});
  EXPECT_EQ(JobLines(), Lines({"T1 T3 T4 T5 T6 S1 S5 S12 S17 ", kPlanned, kFinished}));
  ExpectTarget();
}

TEST_F(FinishFaultTest, FileThatCannotBeCutInBothAttemptsIs9AndCostsNoByte) {
  // The first end set is the file's creation; then the cut and the trailer's own, in turns.
  m_faults.Fail(Call::kSetEnd, 2);
  Observer().OnEach([&](const TaskEvent& event) {
    if (event.type == kEventContentLength && m_faults.Failed() == 1) m_faults.Fail(Call::kSetEnd);
  });
  ExpectTwoFailedEnds("T13 T14 F2 F3 F4 F8 F16 T19 ");
}

TEST_F(FinishFaultTest, FileThatCannotBeOpenedAtFirstIsFinishedAllTheSame) {
  AtTheEnd([&] { m_faults.Fail(Call::kOpenFile, 1, 3); });
  EXPECT_EQ(Run(), kResultSuccess);
  ExpectOneCleanAttempt();
  EXPECT_EQ(m_faults.Failed(), 3);
  ExpectTarget();
}

TEST_F(FinishFaultTest, FileThatCannotBeOpenedFourTimesIsFinishedByTheNextAttempt) {
  AtTheEnd([&] { m_faults.Fail(Call::kOpenFile, 1, 4); });
  ExpectTheNextAttemptToFinish("T13 T14 F2 F8 F16 T19 T22x3 T6 ", 4);
}

TEST_F(FinishFaultTest, TargetThatCannotBeHashedForWantOfMemoryIsFetchedAgain) {
  Job().SetMd5Check(true);
  Job().SetExpectedMd5(Md5Of(Body(kSmall)));
  m_faults.Fail(Call::kBuffer, 7);   // six workers collect in one each
  EXPECT_EQ(Run(), kResultSuccess);  // of the second attempt
  const std::string lines = JobLines();
  EXPECT_NE(lines.find("F7 F9 F10 F11 F14 F16 T17 T18 T19 T21 T22x3 T6 "), std::string::npos)
      << lines;
  ExpectTarget();
}

// What is refused before the job's thread lives is told by the call itself.
class StartFaultTest : public JobFaultTest {};

TEST_F(StartFaultTest, NoThreadForTheJobIsError7AndEndsTheStopEvent) {
  m_faults.Fail(Call::kThread);
  EXPECT_FALSE(Start("/f"));
  EXPECT_EQ(OwnLines(), "D1 D2 Derr7");
  EXPECT_FALSE(Job().HasStopEvent());
  EXPECT_EQ(Observer().Events().size(), 0u);
  ASSERT_TRUE(Job().RenewStopEvent());
  EXPECT_EQ(Run(), kResultSuccess);
}

TEST_F(StartFaultTest, NoEventForTheStopIsRefused) {
  Job().Stop();
  m_faults.Fail(Call::kEvent);
  EXPECT_FALSE(Job().RenewStopEvent());
  EXPECT_FALSE(Start("/f"));
  EXPECT_EQ(OwnLines(), "D1 Derr1");
}

TEST_F(StartFaultTest, ProbeWithoutItsEventAsksNobodyAndIs5) {
  m_faults.Fail(Call::kEvent);  // the probe's, made first
  EXPECT_EQ(Run(), kResultNoRemoteInfo);
  EXPECT_TRUE(RangesAskedFor().empty());
  ExpectTheNextRunCompletes();
}

// What the task manager asks a job for while the job makes, frees and makes its workers.
TEST_F(JobFaultTest, ProgressIsReadWhileTheJobTriesAgain) {
  Serve("/g", Body(60'000)).Times(15).ClosingAfter(4'000);
  Serve("/g", Body(60'000));
  ASSERT_TRUE(Start("/g"));
  std::atomic<bool> ended{false};
  std::atomic<int> known{0};
  std::jthread reader([&] {
    while (!ended) {
      const CDownloadManager::ProgressFigures figures = Job().Progress();
      if (figures.total < 0) continue;
      EXPECT_EQ(figures.total, 60'000);
      EXPECT_LE(figures.downloaded, 60'000);
      ++known;
    }
  });
  EXPECT_EQ(AwaitResult(), kResultSuccess);
  for (const int before = known; known == before;) os::SleepMs(1);
  ended = true;
  reader.join();
  EXPECT_EQ(Attempts(), 2);
}

}  // namespace
}  // namespace Tarnlo::test
