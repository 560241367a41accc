// A whole job: its beginning, its end, and what it says on the way.
#include <gtest/gtest.h>

#include <string>

#include "support/report_store.h"
#include "tests/engine/job_fixture.h"

namespace Tarnlo::test {
namespace {

constexpr std::int64_t kSmall = 10'000;
constexpr char kPlanned[] = "A1 A5 A7 A8 A9 A10 A9x5 A11x6 S22 T7 T12";
constexpr char kFinished[] = "T13 T14 F2 F3 F4 F5 F7 F9 F15 T19 T20 T2";

std::string Joined(std::initializer_list<std::string> parts) {
  std::string all;
  for (const std::string& part : parts) all += (all.empty() ? "" : " ") + part;
  return all;
}

class RefusedDownload : public JobTest {
 protected:
  // The lines of the call; the job has told nothing.
  std::string Refused(const wchar_t* url, const wchar_t* folder, std::int32_t id = kTaskId) {
    const LogReader log;
    EXPECT_FALSE(Job().Download(url, folder, L"", id, false));
    std::string lines;
    for (const std::string& line : log.LinesOfThisThread()) lines += line + "\n";
    EXPECT_TRUE(Observer().Stamps().empty());
    return lines;
  }
  static std::string WithError(int number) {
    return "[INFO] CDownloadManager Download 1\n[ERROR] CDownloadManager Download err " +
           std::to_string(number) + "\n";
  }
};

TEST_F(RefusedDownload, WithoutStopEventIsError1) {
  Job().Stop();
  EXPECT_EQ(Refused(L"http://h/f", L"c:\\d"), WithError(1));
}

TEST_F(RefusedDownload, WithoutFolderIsError2AndClosesTheStopEvent) {
  EXPECT_EQ(Refused(L"http://h/f", nullptr), WithError(2));
  EXPECT_FALSE(Job().HasStopEvent());
  ASSERT_TRUE(Job().RenewStopEvent());
  EXPECT_EQ(Refused(L"", L"", 0), WithError(2));
  EXPECT_FALSE(Job().HasStopEvent());
}

TEST_F(RefusedDownload, WithIdBelow1IsError3AndClosesTheStopEvent) {
  EXPECT_EQ(Refused(L"", L"c:\\d", 0), WithError(3));
  EXPECT_FALSE(Job().HasStopEvent());
  ASSERT_TRUE(Job().RenewStopEvent());
  EXPECT_EQ(Refused(L"http://h/f", L"c:\\d", -1), WithError(3));
}

TEST_F(RefusedDownload, WithoutUrlIsError4AndKeepsTheStopEvent) {
  EXPECT_EQ(Refused(L"", L"c:\\d"), WithError(4));
  EXPECT_TRUE(Job().HasStopEvent());
  EXPECT_EQ(Refused(nullptr, L"c:\\d"), WithError(4));
  EXPECT_TRUE(Job().HasStopEvent());
}

TEST_F(RefusedDownload, WithTooLongUrlIsError5AndClosesTheStopEvent) {
  const std::wstring url = L"http://h/" + std::wstring(1100, L'x');
  EXPECT_EQ(Refused(url.c_str(), L"c:\\d"), WithError(5));
  EXPECT_FALSE(Job().HasStopEvent());
}

TEST_F(JobTest, CleanRunWritesItsStepsInOrder) {
  Serve("/f", Body(kSmall));
  EXPECT_EQ(Download("/f"), kResultSuccess);
  EXPECT_EQ(FileDifference(Target(L"f"), Body(kSmall)), "");
  EXPECT_EQ(Files(), std::vector<std::wstring>{L"f"});
  EXPECT_FALSE(IsHidden(Target(L"f")));
  EXPECT_EQ(JobLines(), Joined({"T1 T3 T4 T5 T6 S1 S5 S12 S17", kPlanned, kFinished}));
  EXPECT_EQ(OwnLines(), "D1 D2 D3");
  EXPECT_EQ(CReportStore::Shared().Properties()[L"retrytips"], L"0");
}

TEST_F(JobTest, EventsBeginWithTheStartAndEndWithOneEnd) {
  Serve("/f", Body(kSmall));
  EXPECT_EQ(Download("/f"), kResultSuccess);
  const auto events = Observer().Events();
  ASSERT_FALSE(events.empty());
  EXPECT_EQ(events.front().type, kEventStarted);
  EXPECT_EQ(events.front().code, kWholeJob);
  EXPECT_EQ(events.front().number, 0);
  EXPECT_EQ(events.back().type, kEventFinished);
  EXPECT_EQ(events.back().code, kWholeJob);
  EXPECT_EQ(events.back().number, kResultSuccess);
  EXPECT_EQ(Observer().CountOf(kEventStarted), 1u);
  EXPECT_EQ(Observer().CountOf(kEventFinished), 1u);
  for (const RecordedEvent& event : events) EXPECT_EQ(event.task_id, kTaskId);

  // Each range's length once, in order, on the job's thread; then all of its bytes.
  const auto lengths = Observer().StampsOf(kEventRangeLength);
  ASSERT_EQ(lengths.size(), 6u);
  std::vector<std::int64_t> done(6, 0);
  for (const RecordedEvent& event : Observer().EventsOf(kEventRangeProgress)) {
    done.at(static_cast<std::size_t>(event.code)) = event.number;
  }
  for (std::size_t i = 0; i < lengths.size(); ++i) {
    EXPECT_EQ(lengths[i].code, static_cast<std::int32_t>(i));
    EXPECT_EQ(lengths[i].number, i == 0 ? 1670 : 1666);
    EXPECT_EQ(lengths[i].thread, Observer().Stamps().front().thread);
    EXPECT_EQ(done[i], lengths[i].number);
  }
}

TEST_F(JobTest, ServerWithoutRangesIsReadOverOneConnection) {
  Serve("/f", Body(kSmall)).IgnoringRanges();
  EXPECT_EQ(Download("/f"), kResultSuccess);
  EXPECT_EQ(FileDifference(Target(L"f"), Body(kSmall)), "");
  EXPECT_EQ(JobLines(), Joined({"T1 T3 T4 T5 T6 S1 S5 S17 S18",
                                "A1 A2 A3 A4 A5 A7 A8 A9 A10 A11 S22 T7 T12", kFinished}));
  EXPECT_EQ(Server().RequestsFor("/f").size(), 3u);  // what it has, whether ranges, the body
}

TEST_F(JobTest, WithoutObserverTheFileComesAllTheSame) {
  Serve("/f", Body(kSmall));
  Job().SetObserver(nullptr);
  ASSERT_TRUE(Start("/f"));
  AwaitRunEnd();
  EXPECT_EQ(FileDifference(Target(L"f"), Body(kSmall)), "");
  EXPECT_EQ(JobLines(), Joined({"T1 T3 T4 T6 S1 S5 S12 S17", kPlanned, kFinished}));
}

TEST_F(JobTest, WithNotifyingOffTheRunTellsNeitherStartNorEnd) {
  Serve("/f", Body(kSmall));
  Job().SetNotifying(false);
  ASSERT_TRUE(Start("/f"));
  AwaitRunEnd();
  EXPECT_EQ(FileDifference(Target(L"f"), Body(kSmall)), "");
  EXPECT_EQ(JobLines(), Joined({"T1 T3 T6 S1 S5 S12 S17", kPlanned, kFinished}));
  for (const std::int32_t type : {kEventStarted, kEventFinished, kEventProgress,
                                  kEventRangeProgress, kEventBufferedBytes, kEventContentLength}) {
    EXPECT_EQ(Observer().CountOf(type), 0u) << type;
  }
}

TEST_F(JobTest, TargetWithTheFirstExpectedDigestCostsNoBodyByte) {
  const Body body(kSmall);
  WriteFileBytes(Target(L"f"), body.Bytes(0, kSmall));
  Serve("/f", body);
  Job().SetMd5Check(true);
  Job().SetExpectedMd5(Md5Of(body) + L",00000000000000000000000000000000");
  EXPECT_EQ(Download("/f"), kResultSuccess);
  EXPECT_EQ(JobLines(), "T1 T3 T4 T5 T6 S1 S5 S6 S7 S8 M1 S11 T7 T8 T9 T2");
  EXPECT_EQ(Server().RequestsFor("/f").size(), 1u);  // what it has
  EXPECT_EQ(Observer().NumbersOf(kEventFinished), std::vector<std::int64_t>{0});
  EXPECT_EQ(Observer().CountOf(kEventStarted), 1u);
  EXPECT_EQ(Observer().CountOf(kEventRangeLength), 0u);
}

TEST_F(JobTest, TargetWithAnotherDigestIsFetchedAgain) {
  const Body body(kSmall);
  WriteFileBytes(Target(L"f"), Body(kSmall, 2).Bytes(0, kSmall));
  Serve("/f", body);
  Job().SetMd5Check(true);
  Job().SetExpectedMd5(Md5Of(body));
  EXPECT_EQ(Download("/f"), kResultSuccess);
  EXPECT_EQ(FileDifference(Target(L"f"), body), "");
  EXPECT_EQ(JobLines(), Joined({"T1 T3 T4 T5 T6 S1 S5 S6 S7 S8 M2 S12 S17", kPlanned,
                                "T13 T14 F2 F3 F4 F5 F7 F9 F10 F11 F12 M1 F13 F15 T19 T20 T2"}));
}

TEST_F(JobTest, TargetWithTheSecondExpectedDigestIsFetchedAgain) {
  const Body body(kSmall);
  WriteFileBytes(Target(L"f"), body.Bytes(0, kSmall));
  Serve("/f", body);
  Job().SetMd5Check(true);
  Job().SetExpectedMd5(L"00000000000000000000000000000000," + Md5Of(body));
  EXPECT_EQ(Download("/f"), kResultSuccess);
  EXPECT_EQ(JobLines(), Joined({"T1 T3 T4 T5 T6 S1 S5 S6 S7 S8 M2 S12 S17", kPlanned,
                                "T13 T14 F2 F3 F4 F5 F7 F9 F10 F11 F12 M1 F13 F15 T19 T20 T2"}));
}

// Such a list says nothing about the target that is there; its size does, whatever the vote says.
TEST_F(JobTest, TargetBesideAListThatBeginsWithACommaIsJudgedByItsSize) {
  const Body body(kSmall);
  WriteFileBytes(Target(L"f"), body.Bytes(0, kSmall));
  Serve("/f", body);
  Job().SetMd5Check(true);
  Job().SetExpectedMd5(L"," + Md5Of(body));
  EXPECT_EQ(Download("/f"), kResultSuccess);
  EXPECT_TRUE(JobLines().starts_with("T1 T3 T4 T5 T6 S1 S5 S6 G1 ")) << JobLines();
}

// The vote's time limits are a few milliseconds: on a busy machine an answer may come too late,
// and then the file is fetched again.
TEST_F(JobTest, TargetOfTheSizeThatTheHostReportsCostsNoBodyByte) {
  const Body body(kSmall);
  WriteFileBytes(Target(L"f"), body.Bytes(0, kSmall));
  Serve("/f", body);
  bool skipped = false;
  for (int run = 0; run < 20 && !skipped; ++run) {
    EXPECT_EQ(run == 0 ? Download("/f") : DownloadAgain("/f"), kResultSuccess);
    skipped = JobLines() ==
              "T1 T3 T4 T5 T6 S1 S5 S6 G1 G3 G4 G5 G6 G7 C10000, =? 10000 S10 S11 T7 T8 T9 T2";
  }
  EXPECT_TRUE(skipped) << JobLines();
  EXPECT_EQ(FileDifference(Target(L"f"), body), "");
}

TEST_F(JobTest, TargetOfAnotherSizeIsReplaced) {
  WriteFileBytes(Target(L"f"), "short");
  Serve("/f", Body(kSmall));
  EXPECT_EQ(Download("/f"), kResultSuccess);
  EXPECT_EQ(FileDifference(Target(L"f"), Body(kSmall)), "");
  EXPECT_NE(JobLines().find("=? 5 S12 S17"), std::string::npos) << JobLines();
  ExpectOneCleanAttempt();
}

TEST_F(JobTest, RequiredVersionAloneDecidesAboutTheTarget) {
  WriteFileBytes(Target(L"f"), Body(kSmall).Bytes(0, kSmall));  // has no version
  Serve("/f", Body(kSmall));
  Job().SetRequiredVersion(L"1.0.0.0");
  EXPECT_EQ(Download("/f"), kResultSuccess);
  EXPECT_EQ(JobLines(), Joined({"T1 T3 T4 T5 T6 S1 S5 S6 S9 S12 S17", kPlanned, kFinished}));
}

TEST_F(JobTest, RestartDeletesTargetAndTemporaryFileFirst) {
  const Body body(kSmall);
  WriteFileBytes(Target(L"f"), body.Bytes(0, kSmall));
  WriteFileBytes(Temporary(L"f"), "old");
  Serve("/f", body).Times(1);  // the probe's
  Serve("/f", body).HoldingAnswer(NewGate());
  EXPECT_TRUE(Start("/f", L"", true));
  ASSERT_TRUE(Observer().AwaitCount(kEventRangeLength, 6));
  EXPECT_EQ(SizeOf(Target(L"f")), -1);
  EXPECT_EQ(SizeOf(Temporary(L"f")), kSmall + 148);
  Pause();
  EXPECT_EQ(JobLines(), Joined({"T1 T3 T4 T5 T6 S1 S4 S17", kPlanned, "F1 F16 T19 T22 T23 T2"}));
}

TEST_F(JobTest, GivenNameUnlikeTheUrlsNamesTheFile) {
  Serve("/f", Body(kSmall));
  EXPECT_EQ(Download("/f", L"other.bin"), kResultSuccess);
  EXPECT_EQ(Files(), std::vector<std::wstring>{L"other.bin"});
}

// The URL's name leads to a file that the server names otherwise.
class RedirectedName : public JobTest {
 protected:
  std::vector<std::wstring> FilesWithGivenName(const wchar_t* name) {
    Serve("/a.bin", Body(0)).RedirectingTo("/b.bin");
    Serve("/b.bin", Body(kSmall));
    EXPECT_EQ(Download("/a.bin", name), kResultSuccess);
    return Files();
  }
};

TEST_F(RedirectedName, WithoutGivenNameIsTheServers) {
  EXPECT_EQ(FilesWithGivenName(L""), std::vector<std::wstring>{L"b.bin"});
}

TEST_F(RedirectedName, GivenNameThatRepeatsTheUrlsGivesWayToTheServers) {
  EXPECT_EQ(FilesWithGivenName(L"A.BIN"), std::vector<std::wstring>{L"b.bin"});
}

TEST_F(RedirectedName, GivenNameThatRepeatsNeitherStays) {
  EXPECT_EQ(FilesWithGivenName(L"c.bin"), std::vector<std::wstring>{L"c.bin"});
}

TEST_F(JobTest, ASecondRunOfAJobReleasesTheFirst) {
  Serve("/f", Body(kSmall));
  ASSERT_TRUE(Start("/f"));
  ASSERT_EQ(AwaitResult(), kResultSuccess);
  // The run's thread may still be on its last lines.
  ASSERT_TRUE(Job().RenewStopEvent());
  Serve("/g", Body(kSmall, 3));
  EXPECT_EQ(Download("/g"), kResultSuccess);
  ExpectOneCleanAttempt();
  EXPECT_EQ(FileDifference(Target(L"g"), Body(kSmall, 3)), "");
}

TEST_F(JobTest, AnEndedRunCannotBeBegunAgainWithoutANewStopEvent) {
  Serve("/f", Body(kSmall));
  ASSERT_TRUE(Start("/f"));
  ASSERT_EQ(AwaitResult(), kResultSuccess);
  EXPECT_FALSE(Start("/f"));  // the run's thread may still hold the old one
  EXPECT_EQ(OwnLines(), "D1 Derr1");
  EXPECT_EQ(Observer().CountOf(kEventFinished), 1u);
}

}  // namespace
}  // namespace Tarnlo::test
