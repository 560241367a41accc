// From the last byte to the finished file: the rename, the digest, the name.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <list>
#include <string>
#include <vector>

#include "support/os/file.h"
#include "support/report_store.h"
#include "tests/engine/job_fixture.h"
#include "tests/faults/faults.h"

namespace Tarnlo::test {
namespace {

constexpr std::int64_t kSmall = 10'000;
constexpr char kRenaming[] = "CDownloadManager HandleDownloadFinished 5";

class FinishTest : public JobTest {
 protected:
  // As a virus scanner holds a file: nobody may rename it meanwhile.
  static os::File Hold(const std::wstring& path, os::FileShare share,
                       os::FileCreation creation = os::FileCreation::kOpenExisting) {
    os::File file = os::File::Open(path, os::FileAccess::kRead, share, creation);
    EXPECT_TRUE(file.valid());
    return file;
  }
  void Expect(const std::wstring& md5_list) {
    Job().SetMd5Check(true);
    Job().SetExpectedMd5(md5_list);
  }
  // What the job says after the last byte, which the first attempt has brought.
  std::string LastLines() {
    EXPECT_EQ(Attempts(), 1) << JobLines();
    const std::string lines = JobLines();
    return lines.substr(std::min(lines.find("T13 "), lines.size()));
  }
};

// A file that someone holds, until the job has tried in vain and begins to try again.
class HeldForAWhile : public FinishTest {
 protected:
  // The first six bodies wait, so that the test can hold the file and see which call is which.
  void StartUpToTheBodies() {
    Serve("/f", Body(kSmall)).Times(1);
    Serve("/f", Body(kSmall)).HoldingAnswer(m_gate);
    ASSERT_TRUE(Start("/f"));
    ASSERT_TRUE(m_gate.AwaitArrivals(6));
  }
  void ReleaseAtTheSecond(os::Call call, os::File& holder) {
    const int before = m_faults.Calls(call);
    m_gate.Open();
    EXPECT_TRUE(m_faults.AwaitCalls(call, before + 2));
    holder.Close();
  }
  void ExpectAFinishedFile() {
    EXPECT_EQ(AwaitResult(), kResultSuccess);
    AwaitRunEnd();
    EXPECT_EQ(FileDifference(Target(L"f"), Body(kSmall)), "");
    EXPECT_EQ(LastLines(), "T13 T14 F2 F3 F4 F5 F7 F9 F15 T19 T20 T2");
    EXPECT_EQ(Files(), std::vector<std::wstring>{L"f"});
  }

  Faults m_faults;
  Gate& m_gate = NewGate();
};

TEST_F(HeldForAWhile, TargetIsReplacedAllTheSame) {
  WriteFileBytes(Target(L"f"), "old");
  os::File holder = Hold(Target(L"f"), os::FileShare::kNone);
  StartUpToTheBodies();
  ReleaseAtTheSecond(os::Call::kRename, holder);
  ExpectAFinishedFile();
}

TEST_F(HeldForAWhile, TemporaryFileIsRenamedAllTheSame) {
  StartUpToTheBodies();
  os::File holder = Hold(Temporary(L"f"), os::FileShare::kReadWrite);
  ReleaseAtTheSecond(os::Call::kRename, holder);
  ExpectAFinishedFile();
}

// All bytes are there, so that no worker opens the file; it is held from the last look at its
// trailer on.
TEST_F(HeldForAWhile, TemporaryFileThatCannotBeOpenedIsCutAllTheSame) {
  const Trailer complete{6, {{0, kSmall, kSmall}, {}, {}, {}, {}, {}}};
  WriteFileBytes(Temporary(L"f"), Body(kSmall).Bytes(0, kSmall) + EncodeTrailer(complete));
  Serve("/f", Body(kSmall));
  os::File holder;
  int before = 0;
  Gate held;
  Observer().OnEach([&](const TaskEvent& event) {
    if (event.type != kEventRangeLength) return;
    const WithoutFaults uncounted;
    holder = Hold(Temporary(L"f"), os::FileShare::kNone);
    before = m_faults.Calls(os::Call::kOpenFile);
    held.Open();
  });
  ASSERT_TRUE(Start("/f"));
  const std::atomic<bool> never{false};
  ASSERT_TRUE(held.Pass(never));
  EXPECT_TRUE(m_faults.AwaitCalls(os::Call::kOpenFile, before + 2));
  holder.Close();
  ExpectAFinishedFile();
}

TEST_F(FinishTest, StopWhileTheTargetIsHeldIsPromptAndKeepsEveryByte) {
  WriteFileBytes(Target(L"f"), "old");
  os::File holder = Hold(Target(L"f"), os::FileShare::kNone);
  Serve("/f", Body(kSmall));
  {
    Faults faults;
    faults.HoldUntil(os::Call::kRename, &IsStoppedOrTheTests);
    ASSERT_TRUE(Start("/f"));
    ASSERT_TRUE(Log().Await(kRenaming));
    Pause();
  }
  EXPECT_EQ(Observer().CountOf(kEventFinished), 0u);
  EXPECT_EQ(LastLines(), "T13 T14 F2 F3 F4 F5 F6 F16 T19 T22 T23 T2");
  EXPECT_EQ(ReadTrailer(Temporary(L"f"), kSmall).MissingBytes(), 0);
  holder.Close();
  EXPECT_EQ(ReadFileBytes(Target(L"f")), "old");

  ASSERT_TRUE(Continue("/f"));
  EXPECT_EQ(AwaitResult(), kResultSuccess);
  EXPECT_EQ(FileDifference(Target(L"f"), Body(kSmall)), "");
  EXPECT_EQ(RangesAskedFor().size(), 6u);  // the first run's
}

// The first block of the file arrives when the stop has been signalled.
TEST_F(FinishTest, StopWhileTheFileIsHashedDeletesNothing) {
  const Body body(kSmall);
  Serve("/f", body);
  Expect(std::wstring(32, L'0'));
  {
    Faults faults;
    faults.HoldUntil(os::Call::kRead, &IsStoppedOrTheTests);
    ASSERT_TRUE(Start("/f"));
    ASSERT_TRUE(Log().Await("CDownloadManager HandleDownloadFinished 11"));
    Pause();
    EXPECT_EQ(Observer().CountOf(kEventFinished), 0u);
    EXPECT_EQ(LastLines(), "T13 T14 F2 F3 F4 F5 F7 F9 F10 F11 F16 T19 T22 T23 T2");
    EXPECT_EQ(Files(), std::vector<std::wstring>{L"f"});
    EXPECT_EQ(FileDifference(Target(L"f"), body), "");

    // The next run looks at what is there.
    ASSERT_TRUE(Continue("/f"));
    ASSERT_TRUE(Log().Await("CDownloadManager StartMTRDownload 7"));
    Pause();
    EXPECT_EQ(FileDifference(Target(L"f"), body), "");
  }
  const std::size_t asked = RangesAskedFor().size();
  Expect(Md5Of(body));
  ASSERT_TRUE(Continue("/f"));
  EXPECT_EQ(AwaitResult(), kResultSuccess);
  EXPECT_EQ(RangesAskedFor().size(), asked);
}

TEST_F(FinishTest, SecondDigestOfTheListMatches) {
  const Body body(kSmall);
  Serve("/f", body);
  Expect(std::wstring(32, L'0') + L"," + Md5Of(body));
  EXPECT_EQ(Download("/f"), kResultSuccess);
  EXPECT_EQ(LastLines(), "T13 T14 F2 F3 F4 F5 F7 F9 F10 F11 F12 M1 F13 F15 T19 T20 T2");
  CReportStore& facts = CReportStore::Shared();
  EXPECT_EQ(facts.Properties()[L"downpackagemd5"], Md5Of(body));
  const auto records = facts.Records();
  for (const std::wstring& fact :
       {L"{\"filemd5_7\":\"" + Md5Of(body) + L"\"}", std::wstring(L"{\"matchmd5_7\":1}")}) {
    EXPECT_NE(std::ranges::find(records, fact), records.end());
  }
}

// Under an id of its own, for the records are those of the whole process.
TEST_F(FinishTest, DigestThatDoesNotMatchIsRecordedAllTheSame) {
  constexpr std::int32_t kOwnId = 166;
  const Body body(kSmall, 2);
  Serve("/f", body);
  Expect(std::wstring(32, L'0'));
  const LogReader log;
  ASSERT_TRUE(Job().Download(Server().Url("/f").c_str(), Folder().c_str(), L"", kOwnId, false));
  ASSERT_TRUE(log.Await("CDownloadManager HandleDownloadFinished 14"));
  CReportStore& facts = CReportStore::Shared();
  EXPECT_EQ(facts.Properties()[L"downpackagemd5"], Md5Of(body));
  auto records = facts.Records();
  std::erase_if(records,
                [](const std::wstring& record) { return record.find(L"_166\"") == record.npos; });
  EXPECT_EQ(records, std::list<std::wstring>{L"{\"filemd5_166\":\"" + Md5Of(body) + L"\"}"});
}

TEST_F(FinishTest, ListThatBeginsWithACommaIsVerifiedAtTheEndAlone) {
  const Body body(kSmall);
  WriteFileBytes(Target(L"f"), "old");
  Serve("/f", body);
  Expect(L"," + Md5Of(body));
  EXPECT_EQ(Download("/f"), kResultSuccess);
  EXPECT_EQ(JobLines().find("S7"), std::string::npos);
  EXPECT_EQ(LastLines(), "T13 T14 F2 F3 F4 F5 F7 F9 F10 F11 F12 M1 F13 F15 T19 T20 T2");
}

TEST_F(FinishTest, ListOfThreeCharactersIsNone) {
  Serve("/f", Body(kSmall));
  Expect(L"abc");
  EXPECT_EQ(Download("/f"), kResultSuccess);
  EXPECT_EQ(LastLines(), "T13 T14 F2 F3 F4 F5 F7 F9 F15 T19 T20 T2");
}

TEST_F(FinishTest, ListOfFourCharactersIsOne) {
  Serve("/f", Body(kSmall));
  Expect(L"abcd");
  ASSERT_TRUE(Start("/f"));
  ASSERT_TRUE(Log().Await("ThreadProc_DownloadMTR 21"));
  Pause();
  EXPECT_TRUE(Files().empty());
}

TEST_F(FinishTest, WithTheCheckOffTheListDoesNotCount) {
  Serve("/f", Body(kSmall));
  Expect(std::wstring(32, L'0'));
  Job().SetMd5Check(false);
  EXPECT_EQ(Download("/f"), kResultSuccess);
  EXPECT_EQ(LastLines(), "T13 T14 F2 F3 F4 F5 F7 F9 F15 T19 T20 T2");
}

TEST_F(FinishTest, ServerThatSendsMoreThanItSaysFillsTheFileAndNoMore) {
  const Body body(kSmall);
  Serve("/f", body).RunningOver(5'000);
  EXPECT_EQ(Download("/f"), kResultSuccess);
  ExpectOneCleanAttempt();
  EXPECT_EQ(FileDifference(Target(L"f"), body), "");
}

TEST_F(FinishTest, ServerThatSendsMoreOverOneConnectionFillsTheFileAndNoMore) {
  const Body body(kSmall);
  Serve("/f", body).IgnoringRanges().RunningOver(50'000);
  EXPECT_EQ(Download("/f"), kResultSuccess);
  ExpectOneCleanAttempt();
  EXPECT_EQ(FileDifference(Target(L"f"), body), "");
}

}  // namespace
}  // namespace Tarnlo::test
