// Runs that take both attempts: what each result comes from, what it says, how long the pause
// between the attempts is, and what stays on the disk. The runs of a suite go side by side.
#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "support/os/file.h"
#include "support/report_store.h"
#include "tests/engine/job_fixture.h"

namespace Tarnlo::test {
namespace {

constexpr std::int64_t kSmall = 10'000;
constexpr char kPlanned[] = "A1 A5 A7 A8 A9 A10 A9x5 A11x6 S22 T7 T12 ";
constexpr char kResumed[] =
    "S1 S5 S12 S13 S14 S15 R1 R2 R3 R4 R5 R6 R7 R8 S16 A1 A11x6 S22 T7 T12 ";
constexpr char kBegun[] = "T1 T3 T4 T5 T6 ";
constexpr char kFailed[] = "T7 T8 T10 F1 F16 T19 ";
constexpr char kPause[] = "T22x3 T6 ";
constexpr char kEnd[] = "T20 T2";

class SlowRetry : public testing::Test {
 protected:
  // All of them, begun together.
  struct Runs {
    TestJob stopped_in_probe, stopped_in_transfer, no_page, no_answer, short_bodies, no_length,
        empty, no_folder, device, too_long, mismatch, mismatch_once, held, heals, begins_again;
    Gate* probe_gate = nullptr;
    Gate* body_gate = nullptr;
    os::File holder;
  };

  static void SetUpTestSuite() {
    s_runs = std::make_unique<Runs>();
    Runs& runs = *s_runs;
    const Body body(kSmall);

    runs.probe_gate = &runs.stopped_in_probe.NewGate();
    runs.stopped_in_probe.Serve("/f", body).Times(1).WithStatus("404 Not Found");
    runs.stopped_in_probe.Serve("/f", body).HoldingAnswer(*runs.probe_gate);
    runs.body_gate = &runs.stopped_in_transfer.NewGate();
    runs.stopped_in_transfer.Serve("/f", body).Times(1).WithStatus("404 Not Found");
    runs.stopped_in_transfer.Serve("/f", body).Times(1);
    runs.stopped_in_transfer.Serve("/f", body).StallingAfter(100, *runs.body_gate);
    runs.heals.Serve("/f", body).Times(1).WithStatus("500 Broken");
    runs.heals.Serve("/f", body);

    runs.no_answer.Serve("/f", body).AnsweringRaw("");
    runs.short_bodies.Serve("/f", body).ClosingAfter(10);
    runs.no_length.Serve("/f", body).WithoutContentLength();
    runs.empty.Serve("/f", Body(0));
    runs.no_folder.Serve("/f", body);
    runs.device.Serve("/CON", body);
    runs.too_long.Serve("/f", body).WithContentLength("9223372036854775800");
    runs.mismatch.Serve("/f", body);
    runs.mismatch.Job().SetMd5Check(true);
    runs.mismatch.Job().SetExpectedMd5(std::wstring(32, L'0'));
    runs.mismatch_once.Serve("/f", Body(kSmall, 2)).Times(7);
    runs.mismatch_once.Serve("/f", body);
    runs.mismatch_once.Job().SetMd5Check(true);
    runs.mismatch_once.Job().SetExpectedMd5(std::wstring(32, L'0') + L"," + Md5Of(body));
    runs.held.Serve("/f", body);
    runs.begins_again.Serve("/f", Body(600'000))
        .IgnoringRanges()
        .ClosingAfter(400'000)
        .Trickling(2'000'000);
    runs.holder = os::File::Open(runs.held.Target(L"f"), os::FileAccess::kReadWrite,
                                 os::FileShare::kNone, os::FileCreation::kCreateAlways);
    ASSERT_TRUE(runs.holder.valid());

    for (TestJob* run :
         {&runs.stopped_in_probe, &runs.stopped_in_transfer, &runs.no_page, &runs.no_answer,
          &runs.short_bodies, &runs.no_length, &runs.empty, &runs.too_long, &runs.mismatch,
          &runs.mismatch_once, &runs.held, &runs.heals, &runs.begins_again}) {
      ASSERT_TRUE(run->Start("/f"));
    }
    ASSERT_TRUE(runs.device.Start("/CON"));
    ASSERT_TRUE(runs.no_folder.StartInto(runs.no_folder.Folder() + L"missing\\", "/f"));
  }
  static void TearDownTestSuite() { s_runs.reset(); }

  // The result, told once.
  static std::int32_t Result(TestJob& run) {
    const std::int32_t result = run.AwaitResult();
    run.AwaitRunEnd();
    EXPECT_EQ(run.Observer().CountOf(kEventFinished), 1u);
    EXPECT_EQ(run.Observer().CountOf(kEventStarted), 1u);
    EXPECT_EQ(run.Observer().Stamps().back().type, kEventFinished);
    return result;
  }

  // From the last report before the second probe's answer to that answer.
  static std::uint32_t PauseMs(TestJob& run) {
    const auto stamps = run.Observer().Stamps();
    std::size_t answers = 0;
    for (std::size_t i = 0; i < stamps.size(); ++i) {
      if (stamps[i].type != kEventRemoteName || ++answers < 2) continue;
      return stamps[i].tick - stamps[i - 1].tick;
    }
    // No answer in the first attempt: the whole run.
    return stamps.back().tick - stamps.front().tick;
  }
  // At least; that it is no longer is in the log, with a line for each of its turns.
  static void ExpectPause(TestJob& run, std::uint32_t others_ms = 0) {
    EXPECT_GE(PauseMs(run), 3000u + others_ms);
    EXPECT_NE(run.JobLines().find(" T22x3 T6 "), std::string::npos) << run.JobLines();
  }

  static std::unique_ptr<Runs> s_runs;
};

std::unique_ptr<SlowRetry::Runs> SlowRetry::s_runs;

std::string Lines(std::initializer_list<std::string> parts) {
  std::string all;
  for (const std::string& part : parts) all += part;
  return all;
}

// The first two stop runs that are under way, and so come first.
TEST_F(SlowRetry, DirectStopInTheSecondProbeIsTold) {
  TestJob& run = s_runs->stopped_in_probe;
  ASSERT_TRUE(s_runs->probe_gate->AwaitArrivals());
  run.StopPromptly();
  EXPECT_EQ(Result(run), kResultStopped);
  EXPECT_EQ(run.JobLines(), Lines({kBegun, "S1 S2 ", kFailed, kPause, "S1 S2 ", kFailed, kEnd}));
  EXPECT_TRUE(run.Files().empty());
}

TEST_F(SlowRetry, DirectStopInTheSecondTransferIsToldAndLeavesTheTrailer) {
  TestJob& run = s_runs->stopped_in_transfer;
  ASSERT_TRUE(s_runs->body_gate->AwaitArrivals(6));
  ASSERT_TRUE(run.Observer().AwaitEachHas(6, 100));
  run.StopPromptly();
  EXPECT_EQ(Result(run), kResultStopped);
  EXPECT_EQ(run.JobLines(), Lines({kBegun, "S1 S2 ", kFailed, kPause, "S1 S5 S12 S17 ", kPlanned,
                                   "F1 F16 T19 ", kEnd}));
  const Trailer trailer = ReadTrailer(run.Temporary(L"f"), kSmall);
  ASSERT_EQ(trailer.records.size(), 6u);
  for (const RangeRecord& record : trailer.records) {
    EXPECT_EQ(record.done, 100);
    EXPECT_EQ(
        FileDifference(run.Temporary(L"f"), Body(kSmall), record.start, record.start + record.done),
        "");
  }
}

TEST_F(SlowRetry, ErrorPageForTheProbeIs5) {
  TestJob& run = s_runs->no_page;
  EXPECT_EQ(Result(run), kResultNoRemoteInfo);
  EXPECT_EQ(run.JobLines(), Lines({kBegun, "S1 S2 ", kFailed, kPause, "S1 S2 ", kFailed, kEnd}));
  EXPECT_EQ(run.Server().RequestsFor("/f").size(), 2u);
  EXPECT_TRUE(run.Files().empty());
  ExpectPause(run);
}

TEST_F(SlowRetry, NoAnswerToTheProbeIs5) {
  TestJob& run = s_runs->no_answer;
  EXPECT_EQ(Result(run), kResultNoRemoteInfo);
  EXPECT_EQ(run.JobLines(), Lines({kBegun, "S1 S2 ", kFailed, kPause, "S1 S2 ", kFailed, kEnd}));
  ExpectPause(run);
}

TEST_F(SlowRetry, SecondAttemptMaySucceed) {
  TestJob& run = s_runs->heals;
  EXPECT_EQ(Result(run), kResultSuccess);
  EXPECT_EQ(run.JobLines(), Lines({kBegun, "S1 S2 ", kFailed, kPause, "S1 S5 S12 S17 ", kPlanned,
                                   "T13 T14 F2 F3 F4 F5 F7 F9 F15 T19 ", kEnd}));
  EXPECT_EQ(FileDifference(run.Target(L"f"), Body(kSmall)), "");
}

TEST_F(SlowRetry, BodiesThatEndEarlyAre3AndTheSecondAttemptGoesOn) {
  TestJob& run = s_runs->short_bodies;
  EXPECT_EQ(Result(run), kResultTooFewBytes);
  EXPECT_EQ(run.JobLines(), Lines({kBegun, "S1 S5 S12 S17 ", kPlanned, "F1 F16 T19 ", kPause,
                                   kResumed, "F1 F16 T19 ", kEnd}));
  ExpectPause(run);
  // Two connections a range in each attempt, ten bytes a connection.
  const Trailer trailer = ReadTrailer(run.Temporary(L"f"), kSmall);
  ASSERT_EQ(trailer.count, 6u);
  for (const RangeRecord& record : trailer.records) {
    EXPECT_EQ(record.done, 40);
    EXPECT_EQ(
        FileDifference(run.Temporary(L"f"), Body(kSmall), record.start, record.start + record.done),
        "");
  }
  EXPECT_TRUE(IsHidden(run.Temporary(L"f")));
  EXPECT_FALSE(run.Has(run.Target(L"f")));
}

// Both attempts plan one range to wherever the file ends.
void ExpectTwoOpenEnds(TestJob& run) {
  constexpr char kOpenEnded[] = "S17 S18 A1 A3 A4 A5 A7 A9 A11 S22 T7 T12 F1 F16 T19 ";
  constexpr char kOpenEndedAgain[] = "S17 S18 A1 A3 A5 A7 A9 A11 S22 T7 T12 F1 F16 T19 ";
  EXPECT_EQ(run.JobLines(), Lines({kBegun, "S1 S5 S12 ", kOpenEnded, kPause, "S1 S5 S12 S13 S14 ",
                                   kOpenEndedAgain, kEnd}));
  EXPECT_EQ(run.Observer().NumbersOf(kEventRangeLength), (std::vector<std::int64_t>{-1, -1}));
}

TEST_F(SlowRetry, NoContentLengthIs3AndLeavesNoTrailer) {
  TestJob& run = s_runs->no_length;
  EXPECT_EQ(Result(run), kResultTooFewBytes);
  ExpectTwoOpenEnds(run);
  EXPECT_EQ(FileDifference(run.Temporary(L"f"), Body(kSmall)), "");
  ExpectPause(run);
}

TEST_F(SlowRetry, EmptyFileIs3) {
  TestJob& run = s_runs->empty;
  EXPECT_EQ(Result(run), kResultTooFewBytes);
  ExpectTwoOpenEnds(run);
  EXPECT_EQ(SizeOf(run.Temporary(L"f")), 0);
  ExpectPause(run);
}

TEST_F(SlowRetry, MissingFolderIs9) {
  TestJob& run = s_runs->no_folder;
  EXPECT_EQ(Result(run), kResultFileFailed);
  EXPECT_EQ(run.JobLines(), Lines({kBegun, "S1 S5 S12 S17 S20 ", kFailed, kPause,
                                   "S1 S5 S12 S17 S20 ", kFailed, kEnd}));
  EXPECT_TRUE(run.Files().empty());
  ExpectPause(run);
}

TEST_F(SlowRetry, NameOfADeviceIs9) {
  TestJob& run = s_runs->device;
  EXPECT_EQ(Result(run), kResultFileFailed);
  EXPECT_EQ(run.JobLines(), Lines({kBegun, "S1 S5 S12 S17 S20 ", kFailed, kPause,
                                   "S1 S5 S12 S17 S20 ", kFailed, kEnd}));
  EXPECT_TRUE(run.Files().empty());
  ExpectPause(run);
}

TEST_F(SlowRetry, LengthBeyondEveryDiskIs10) {
  TestJob& run = s_runs->too_long;
  EXPECT_EQ(Result(run), kResultNoSpace);
  EXPECT_EQ(run.JobLines(), Lines({kBegun, "S1 S5 S12 S17 S19 ", kFailed, kPause,
                                   "S1 S5 S12 S17 S19 ", kFailed, kEnd}));
  EXPECT_TRUE(run.Files().empty());
  ExpectPause(run);
}

TEST_F(SlowRetry, DigestThatMatchesNothingIs11AndDeletesBothFiles) {
  TestJob& run = s_runs->mismatch;
  EXPECT_EQ(Result(run), kResultMd5Mismatch);
  constexpr char kMismatch[] = "T13 T14 F2 F3 F4 F5 F7 F9 F10 F11 F12 M2 F14 F16 T17 T18 T19 ";
  EXPECT_EQ(run.JobLines(), Lines({kBegun, "S1 S5 S12 S17 ", kPlanned, kMismatch, "T21 ", kPause,
                                   "S1 S5 S12 S17 ", kPlanned, kMismatch, kEnd}));
  EXPECT_TRUE(run.Files().empty());
  ExpectPause(run);
}

TEST_F(SlowRetry, WrongBytesOnceAreFetchedAgainAndTheSecondDigestOfTheListCounts) {
  TestJob& run = s_runs->mismatch_once;
  EXPECT_EQ(Result(run), kResultSuccess);
  EXPECT_EQ(FileDifference(run.Target(L"f"), Body(kSmall)), "");
  ExpectPause(run);
}

TEST_F(SlowRetry, TargetHeldForGoodIs9AndTheNextAttemptFetchesNothing) {
  TestJob& run = s_runs->held;
  EXPECT_EQ(Result(run), kResultFileFailed);
  constexpr char kHeld[] = "T13 T14 F2 F3 F4 F5 F6 F16 T19 ";
  EXPECT_EQ(run.JobLines(),
            Lines({kBegun, "S1 S5 S12 S17 ", kPlanned, kHeld, kPause, kResumed, kHeld, kEnd}));
  EXPECT_EQ(run.Server().RequestsFor("/f").size(), 8u);  // the second attempt's probe is the last
  ExpectPause(run, 1400);                                // and before it three more tries to rename
  EXPECT_EQ(SizeOf(run.Target(L"f")), 0);
  EXPECT_EQ(ReadTrailer(run.Temporary(L"f"), kSmall).MissingBytes(), 0);
  EXPECT_EQ(FileDifference(run.Temporary(L"f"), Body(kSmall), 0, kSmall), "");

  s_runs->holder.Close();
  EXPECT_EQ(run.DownloadAgain("/f"), kResultSuccess);
  EXPECT_TRUE(run.RangesAskedFor(8).empty());
  EXPECT_EQ(FileDifference(run.Target(L"f"), Body(kSmall)), "");
}

// Without ranges every connection begins with the first byte.
TEST_F(SlowRetry, ReportedProgressDoesNotFallWhenTheFileBeginsAgain) {
  TestJob& run = s_runs->begins_again;
  EXPECT_EQ(Result(run), kResultTooFewBytes);
  const auto stamps = run.Observer().StampsOf(kEventProgress);
  ASSERT_GE(stamps.size(), 4u);
  for (std::size_t i = 1; i < stamps.size(); ++i) {
    EXPECT_GE(stamps[i].number, stamps[i - 1].number);
    EXPECT_LE(stamps[i].number, 400'000);
  }
  ExpectPause(run);
}

class SlowRefusedDownload : public JobTest {};

TEST_F(SlowRefusedDownload, WhileARunLastsLeavesThatRunItsStopEvent) {
  Serve("/f", Body(kSmall)).HoldingAnswer(NewGate());
  ASSERT_TRUE(Start("/f"));
  EXPECT_FALSE(Job().Download(Server().Url("/f").c_str(), Folder().c_str(), L"", kTaskId, false));
  EXPECT_EQ(OwnLines(), "D1 D2 D3 D1 Derr7");
  EXPECT_TRUE(Job().HasStopEvent());
  Pause();
}

class SlowRetryTips : public JobTest {};

TEST_F(SlowRetryTips, SecondAttemptIsNotedInTheReportStore) {
  ASSERT_TRUE(Start("/f"));
  EXPECT_EQ(AwaitResult(), kResultNoRemoteInfo);
  EXPECT_EQ(CReportStore::Shared().Properties()[L"retrytips"], L"1");
}

}  // namespace
}  // namespace Tarnlo::test
