// Whole runs of a worker's thread: what is logged, told and written.
#include "hosts/down_host_mgr.h"
#include "support/report_store.h"
#include "tests/transfer/worker_fixture.h"

namespace Tarnlo::test {
namespace {

using Numbers = std::vector<std::int64_t>;

std::uint32_t ConnectionsCounted() {
  const auto counters = CReportStore::Shared().Counters();
  const auto found = counters.find(L"127.0.0.1");
  return found == counters.end() ? 0 : found->second;
}

class WorkerRunTest : public WorkerTest {
 protected:
  // Of 1,000,000 bytes, served at "/f".
  FaultScript& Serve() { return m_server.Serve("/f", m_file); }
  void ExpectRange(std::int64_t begin, std::int64_t end) const {
    EXPECT_EQ(FileDifference(Target(), m_file, begin, end), "");
  }
  // The bytes of [begin, end) are still those of a fresh file.
  void ExpectUntouched(std::int64_t begin, std::int64_t end) const {
    os::File file = os::File::Open(Target(), os::FileAccess::kRead, os::FileShare::kReadWrite,
                                   os::FileCreation::kOpenExisting);
    ASSERT_TRUE(file.Seek(begin));
    std::vector<char> bytes(static_cast<std::size_t>(end - begin), 'x');
    EXPECT_EQ(file.Read(bytes.data(), static_cast<std::uint32_t>(bytes.size())), bytes.size());
    EXPECT_EQ(std::count(bytes.begin(), bytes.end(), '\0'), end - begin);
  }
  void SetUp() override {
    MakeTarget(m_file.size());
    Prepare(m_worker, "/f", 3);
  }
  static bool Contains(const Lines& lines, const std::string& line) {
    return std::find(lines.begin(), lines.end(), line) != lines.end();
  }
  static int CountOf(const Lines& lines, const std::string& line) {
    return static_cast<int>(std::count(lines.begin(), lines.end(), line));
  }

  const Body m_file{1'000'000};
  TestWorker m_worker;
};

TEST_F(WorkerRunTest, CleanRunLogsEveryStepInOrder) {
  Serve().LeadingBody(100);
  const LogReader log;
  const std::uint32_t counted = ConnectionsCounted();
  const Lines lines = Run(m_worker, 1000, 100);
  EXPECT_EQ(lines, (Lines{"[INFO] ThreadProc_Download 1",
                          "[INFO] ThreadProc_Download 2",
                          "[INFO] CDownloadHttp DownloadOnce 1: 100 0",
                          "[INFO] CDownloadBase DownloadOnce 1",
                          "[INFO] CDownloadBase DownloadOnce 3",
                          "[INFO] CCustomizeSocket Connect ip: 127.0.0.1",
                          "[INFO] CDownloadHttp RequestHttpData 1",
                          "[INFO] CDownloadHttp SendRequest 1",
                          "[INFO] CCustomizeSocket Connect ip: 127.0.0.1",
                          "[INFO] CDownloadHttp SendRequest 4",
                          "[INFO] CDownloadHttp SendRequest 6",
                          "[INFO] CDownloadHttp ParseResponseString 9",
                          "[INFO] CDownloadHttp RequestHttpData 4",
                          "[INFO] CDownloadHttp DownloadOnce 4: 100",
                          "[INFO] CDownloadBase RecvDataAndSaveToFile 1: 0",
                          "[INFO] CDownloadBase RecvDataAndSaveToFile: 127.0.0.1",
                          "[WARN] CDownloadBase RecvDataAndSaveToFile 4",
                          "[INFO] CDownloadBase RecvDataAndSaveToFile 7",
                          "[INFO] ThreadProc_Download 3",
                          "[INFO] ThreadProc_Download 7",
                          "[INFO] DownloadEnd 1",
                          "[INFO] DownloadEnd 2"}));
  EXPECT_EQ(log.LinesOfThisThread(), (Lines{"[INFO] CDownloadBase Download 1: 1000 100 0",
                                            "[INFO] CDownloadBase Download 3: 1000 100 0"}));
  EXPECT_TRUE(m_worker.succeeded());
  ExpectRange(1000, 1100);
  ExpectUntouched(0, 1000);
  ExpectUntouched(1100, m_file.size());
  EXPECT_EQ(ConnectionsCounted(), counted + 1);
  EXPECT_EQ(ProgressCalls(), (std::vector<Progress>{{3, 100, 100}, {3, 100, 0}}));
  EXPECT_EQ(m_observer.NumbersOf(kEventRangeLength), Numbers{100});
  EXPECT_EQ(m_observer.NumbersOf(kEventBufferedBytes), Numbers{0});
  EXPECT_EQ(m_observer.Events().front().code, 3);
  EXPECT_EQ(m_observer.Events().front().task_id, 7);
  // The second connection is the request's; nothing was asked over the first.
  EXPECT_EQ(m_server.connections(), 2);
  EXPECT_EQ(m_server.Requests().size(), 1U);
}

TEST_F(WorkerRunTest, BodyIsCollectedAndWrittenInLargePieces) {
  Serve();
  Run(m_worker, 0, m_file.size());
  EXPECT_TRUE(m_worker.succeeded());
  EXPECT_EQ(FileDifference(Target(), m_file), "");
  std::int64_t sum = 0;
  for (const auto& [index, received, delta] : ProgressCalls()) {
    sum += delta;
    EXPECT_EQ(received, sum);
    EXPECT_LT(delta, 409'600);
    if (received < m_file.size() && delta > 20'480) {
      EXPECT_GE(delta, 368'640);
    }
  }
  EXPECT_EQ(sum, m_file.size());
  EXPECT_EQ(m_worker.range().buffered(), 0);
}

TEST_F(WorkerRunTest, BufferedBytesAreToldEveryPassAndFallTo0WithEveryWrite) {
  Serve();
  Run(m_worker, 0, m_file.size());
  const Numbers buffered = m_observer.NumbersOf(kEventBufferedBytes);
  ASSERT_GT(buffered.size(), 40U);
  std::int64_t last = 0;
  for (const std::int64_t count : buffered) {
    EXPECT_TRUE(count == 0 || (count > last && count < 368'640)) << count;
    last = count;
  }
  EXPECT_EQ(last, 0);
}

TEST_F(WorkerRunTest, RemainingBytesNeverRiseWhileARunGoesWell) {
  const Body large(64 << 20);
  m_server.Serve("/large", large);
  Prepare(m_worker, "/large");
  ASSERT_TRUE(m_worker.Download(0, large.size(), 0));
  std::int64_t last = large.size();
  bool rose = false;
  while (last > 0 && m_worker.IsThreadRunning()) {
    for (int look = 0; look < 1000; ++look) {
      const std::int64_t left = m_worker.GetRemainingBytes();
      if (left > last || left < 0) rose = true;
      last = left;
    }
  }
  AwaitEnd(m_worker);
  EXPECT_FALSE(rose);
  EXPECT_TRUE(m_worker.succeeded());
  EXPECT_EQ(m_worker.GetRemainingBytes(), 0);
}

TEST_F(WorkerRunTest, SilentOwnerHearsOfLengthsAlone) {
  Serve();
  TestOwner owner(false);
  WorkerSetup setup = MakeSetup();
  setup.owner = &owner;
  m_worker.Configure(setup);
  Run(m_worker, 0, 5000);
  EXPECT_EQ(m_observer.NumbersOf(kEventBufferedBytes), Numbers{});
  EXPECT_EQ(m_observer.NumbersOf(kEventRangeLength), Numbers{5000});
}

TEST_F(WorkerRunTest, ResumedRangeAsksForTheRestAndWritesBehindWhatIsThere) {
  Serve();
  Run(m_worker, 1000, 500, 200);
  EXPECT_TRUE(m_worker.succeeded());
  ExpectUntouched(1000, 1200);
  ExpectRange(1200, 1500);
  ExpectUntouched(1500, 2000);
  EXPECT_EQ(m_server.Requests().at(0).Header("Range"), "bytes=1200-1499");
}

TEST_F(WorkerRunTest, EmptyRangeIsCompleteWithoutAThread) {
  const LogReader log;
  EXPECT_TRUE(m_worker.Download(5, 0, 0));
  EXPECT_FALSE(m_worker.HasThread());
  EXPECT_TRUE(m_worker.succeeded());
  EXPECT_EQ(log.LinesOfThisThread(), Lines{"[INFO] CDownloadBase Download 1: 5 0 0"});
}

TEST_F(WorkerRunTest, CompleteRangeConnectsToNobody) {
  const Lines lines = Run(m_worker, 0, 100, 100);
  EXPECT_EQ(lines,
            (Lines{"[INFO] ThreadProc_Download 1", "[INFO] ThreadProc_Download 2",
                   "[INFO] CDownloadHttp DownloadOnce 1: 100 100",
                   "[INFO] CDownloadHttp DownloadOnce 2: 100 100", "[INFO] ThreadProc_Download 3",
                   "[INFO] ThreadProc_Download 7", "[INFO] DownloadEnd 1"}));
  EXPECT_TRUE(m_worker.succeeded());
  EXPECT_EQ(m_server.connections(), 0);
}

TEST_F(WorkerRunTest, SizesBeyond32BitsAreLoggedByTheirLowBits) {
  const std::int64_t start = (std::int64_t{5} << 32) + 7;
  const LogReader log;
  EXPECT_TRUE(m_worker.Download(start, 0, std::int64_t{1} << 31));
  EXPECT_EQ(log.LinesOfThisThread(), Lines{"[INFO] CDownloadBase Download 1: 7 0 -2147483648"});
}

TEST_F(WorkerRunTest, OpenRangeSucceedsOnceAnythingCame) {
  Serve();
  const Lines lines = Run(m_worker, 0, kOpenEnd);
  EXPECT_TRUE(m_worker.succeeded());
  EXPECT_EQ(FileDifference(Target(), m_file), "");
  EXPECT_TRUE(Contains(lines, "[WARN] CDownloadBase RecvDataAndSaveToFile 5"));
  EXPECT_EQ(CountOf(lines, "[INFO] ThreadProc_Download 2"), 1);
}

TEST_F(WorkerRunTest, OpenRangeWithNothingInItFails) {
  Serve().ClosingAfter(0);
  Run(m_worker, 0, kOpenEnd);
  EXPECT_FALSE(m_worker.succeeded());
}

TEST_F(WorkerRunTest, FileIsMadeWhenItIsMissing) {
  std::filesystem::remove(m_path);
  Serve();
  Run(m_worker, 10, 20);
  EXPECT_TRUE(m_worker.succeeded());
  ExpectRange(10, 30);
}

TEST_F(WorkerRunTest, FileThatCannotBeOpenedFailsBothAttempts) {
  std::filesystem::remove(m_path);
  std::filesystem::create_directories(m_path);
  const Lines lines = Run(m_worker, 0, 100);
  std::filesystem::remove(m_path);
  const Lines attempt{
      "[INFO] ThreadProc_Download 2",        "[INFO] CDownloadHttp DownloadOnce 1: 100 0",
      "[INFO] CDownloadBase DownloadOnce 1", "[INFO] CDownloadBase DownloadOnce 2",
      "[INFO] ThreadProc_Download 4",        "[INFO] ThreadProc_Download 5",
      "[INFO] ThreadProc_Download 6"};
  Lines wanted{"[INFO] ThreadProc_Download 1"};
  wanted.insert(wanted.end(), attempt.begin(), attempt.end());
  wanted.insert(wanted.end(), attempt.begin(), attempt.end());
  wanted.insert(wanted.end(), {"[INFO] ThreadProc_Download 7", "[INFO] DownloadEnd 1"});
  EXPECT_EQ(lines, wanted);
  EXPECT_FALSE(m_worker.succeeded());
  EXPECT_EQ(ProgressCalls(), (std::vector<Progress>{{3, 0, 0}, {3, 0, 0}}));
}

TEST_F(WorkerRunTest, RefusedRequestFailsBothAttempts) {
  Serve().WithStatus("404 Not Found");
  const Lines lines = Run(m_worker, 0, 100);
  const auto first = std::find(lines.begin(), lines.end(), "[INFO] CDownloadHttp SendRequest 6");
  ASSERT_NE(first, lines.end());
  ASSERT_GT(lines.end() - first, 11);
  // The connection stays, so the second attempt does not begin with one.
  EXPECT_EQ(
      Lines(first + 1, first + 11),
      (Lines{"[INFO] CDownloadHttp RequestHttpData 3", "[INFO] CDownloadHttp DownloadOnce 3: 20480",
             "[INFO] ThreadProc_Download 4", "[INFO] ThreadProc_Download 5",
             "[INFO] ThreadProc_Download 6", "[INFO] ThreadProc_Download 2",
             "[INFO] CDownloadHttp DownloadOnce 1: 100 0", "[INFO] CDownloadBase DownloadOnce 1",
             "[INFO] CDownloadHttp RequestHttpData 1", "[INFO] CDownloadHttp SendRequest 1"}));
  EXPECT_FALSE(m_worker.succeeded());
  EXPECT_EQ(m_server.Requests().size(), 2U);
  ExpectUntouched(0, m_file.size());
}

TEST_F(WorkerRunTest, SecondAttemptGoesOnWhereTheFirstEnded) {
  Serve().Times(1).ClosingAfter(400'000);
  Serve();
  const Lines lines = Run(m_worker, 100, 900'000);
  EXPECT_TRUE(m_worker.succeeded());
  ExpectRange(100, 900'100);
  ExpectUntouched(900'100, m_file.size());
  EXPECT_EQ(m_server.Requests().at(1).Header("Range"), "bytes=400100-900099");
  EXPECT_TRUE(Contains(lines, "[INFO] CDownloadHttp DownloadOnce 1: 900000 400000"));
  EXPECT_TRUE(Contains(lines, "[INFO] CDownloadBase RecvDataAndSaveToFile 1: 400000"));
}

TEST_F(WorkerRunTest, ConnectionThatEndsEarlyTwiceFailsWithWhatItBroughtCounted) {
  Serve().ClosingAfter(100);
  const Lines lines = Run(m_worker, 0, 1000);
  EXPECT_FALSE(m_worker.succeeded());
  EXPECT_EQ(m_worker.received(), 200);
  EXPECT_EQ(m_worker.range().buffered(), 0);
  EXPECT_EQ(m_worker.GetRemainingBytes(), 800);
  ExpectRange(0, 200);
  EXPECT_EQ(CountOf(lines, "[WARN] CDownloadBase RecvDataAndSaveToFile 5"), 2);
  EXPECT_EQ(CountOf(lines, "[INFO] CDownloadBase RecvDataAndSaveToFile 7"), 2);
  // What is left may be given away whole.
  EXPECT_TRUE(m_worker.TryCut(200));
}

TEST_F(WorkerRunTest, ResetKeepsWhatCameBeforeIt) {
  Serve().Times(1).ResettingAfter(300'000);
  Serve();
  Run(m_worker, 0, m_file.size());
  EXPECT_TRUE(m_worker.succeeded());
  EXPECT_EQ(FileDifference(Target(), m_file), "");
}

TEST_F(WorkerRunTest, TricklingBodyIsTakenByteByByte) {
  Serve().Trickling(10);
  Run(m_worker, 50, 5);
  EXPECT_TRUE(m_worker.succeeded());
  ExpectRange(50, 55);
}

// --- No byte lands where it was not asked for --------------------------------------------------

TEST_F(WorkerRunTest, LongerBodyIsCutAtTheRangesEnd) {
  Serve().LeadingBody(300).RunningOver(100'000);
  Run(m_worker, 1000, 500);
  EXPECT_TRUE(m_worker.succeeded());
  ExpectRange(1000, 1500);
  ExpectUntouched(1500, m_file.size());
}

TEST_F(WorkerRunTest, LeadingBytesAreCutAtTheRangesEnd) {
  // A whole file's first bytes come with the head; ten of them were asked for.
  Serve().IgnoringRanges().LeadingBody(5000);
  Run(m_worker, 0, 10);
  EXPECT_TRUE(m_worker.succeeded());
  EXPECT_EQ(m_worker.received(), 10);
  ExpectRange(0, 10);
  ExpectUntouched(10, m_file.size());
}

TEST_F(WorkerRunTest, WholeFileForARangeFurtherOnIsRefused) {
  Serve().IgnoringRanges().LeadingBody(100).ClosingAfter(100);
  const Lines lines = Run(m_worker, 1000, 500);
  EXPECT_FALSE(m_worker.succeeded());
  EXPECT_EQ(CountOf(lines, "[INFO] CDownloadHttp DownloadOnce 3: 100"), 2);
  EXPECT_EQ(CountOf(lines, "[INFO] CDownloadHttp RequestHttpData 4"), 2);
  EXPECT_EQ(m_worker.received(), 0);
  ExpectUntouched(0, m_file.size());
  EXPECT_EQ(ProgressCalls(), (std::vector<Progress>{{3, 0, 0}, {3, 0, 0}}));
}

TEST_F(WorkerRunTest, PartialContentFromElsewhereIsRefused) {
  Serve().WithContentRange("Content-Range: bytes 0-499/1000000\r\n");
  const Lines lines = Run(m_worker, 1000, 500);
  EXPECT_FALSE(m_worker.succeeded());
  EXPECT_EQ(CountOf(lines, "[INFO] CDownloadHttp ParseResponseString 9"), 2);
  ExpectUntouched(0, m_file.size());
}

TEST_F(WorkerRunTest, PartialContentThatDoesNotSayWhereIsTaken) {
  Serve().WithContentRange("");
  Run(m_worker, 1000, 500);
  EXPECT_TRUE(m_worker.succeeded());
  ExpectRange(1000, 1500);
}

TEST_F(WorkerRunTest, PartialContentWithAFoldedContentRangeIsRead) {
  Serve().Times(1).WithContentRange("Content-Range:\r\n bytes 0-1/5\r\n");
  Serve().WithContentRange("Content-Range: bytes\r\n 1000-1499/5\r\n");
  Run(m_worker, 1000, 500);
  EXPECT_TRUE(m_worker.succeeded());
  ExpectRange(1000, 1500);
  EXPECT_EQ(m_server.Requests().size(), 2U);
}

TEST_F(WorkerRunTest, ShorterRangeLeavesTheRestMissing) {
  Serve().Times(1).AtMost(100);
  Serve();
  Run(m_worker, 1000, 500);
  EXPECT_TRUE(m_worker.succeeded());
  ExpectRange(1000, 1500);
  EXPECT_EQ(m_server.Requests().at(1).Header("Range"), "bytes=1100-1499");
}

TEST_F(WorkerRunTest, ResumedFirstRangeThatGetsTheWholeFileStartsOver) {
  Serve().IgnoringRanges();
  const Lines lines = Run(m_worker, 0, m_file.size(), 300'000);
  EXPECT_TRUE(m_worker.succeeded());
  EXPECT_EQ(FileDifference(Target(), m_file), "");
  EXPECT_TRUE(Contains(lines, "[INFO] CDownloadHttp DownloadOnce 1: 1000000 300000"));
  EXPECT_TRUE(Contains(lines, "[INFO] CDownloadBase RecvDataAndSaveToFile 1: 0"));
  EXPECT_EQ(std::get<1>(ProgressCalls().back()), m_file.size());
}

TEST_F(WorkerRunTest, BodyBehindAHiddenEmptyLineIsRefused) {
  // The head's own empty line is cut in two by the chunk and not found; the one that is found lies
  // in the body.
  Gate gate;
  const std::string head = "HTTP/1.1 206 Partial Content\r\n\r";
  Serve().Times(1).AnsweringRaw(head + "\n0123\r\n\r\nabcdefgh").SplittingHeadAt(head.size(), gate);
  Serve().WithStatus("404 Not Found");
  const LogReader log;
  ASSERT_TRUE(m_worker.Download(0, 8, 0));
  const std::uint32_t thread = m_worker.thread_id();
  EXPECT_TRUE(log.Await("CDownloadHttp SendRequest 4", 2));
  gate.Open();
  AwaitEnd(m_worker);
  const Lines lines = log.LinesOf(thread);
  EXPECT_TRUE(Contains(lines, "[INFO] CDownloadHttp DownloadOnce 3: 8"));
  ExpectUntouched(0, 100);
}

// --- Counted means written ---------------------------------------------------------------------

TEST_F(WorkerRunTest, WriteIsRefusedForNoBufferAndForANegativeCount) {
  m_worker.TakeRange(0, 100, 0);
  ASSERT_TRUE(m_worker.OpenTargetFile());
  EXPECT_EQ(m_worker.WriteToFile(nullptr, 5), -1);
  EXPECT_EQ(m_worker.WriteToFile("x", -1), -1);
  EXPECT_EQ(m_worker.WriteToFile("xy", 2), 2);
  EXPECT_EQ(m_worker.WriteToFile("z", 1), 3);
  EXPECT_TRUE(m_worker.TryCut(3));
  EXPECT_EQ(ProgressCalls(), (std::vector<Progress>{{3, 2, 2}, {3, 3, 1}}));
}

// Receives a body with no file open, so that every write fails.
TEST_F(WorkerRunTest, FailedWriteOfLeadingBytesEndsTheAttempt) {
  m_worker.TakeRange(0, 1000, 0);
  const LogReader log;
  CCustomizeSocket socket;
  EXPECT_FALSE(m_worker.RecvDataAndSaveToFile(socket, "abc", 3));
  EXPECT_EQ(log.LinesOfThisThread(), (Lines{"[INFO] CDownloadBase RecvDataAndSaveToFile 1: 0",
                                            "[WARN] CDownloadBase RecvDataAndSaveToFile 2"}));
  EXPECT_EQ(m_worker.received(), 0);
  EXPECT_TRUE(m_worker.TryCut(1));
}

TEST_F(WorkerRunTest, FailedWriteOfCollectedBytesLeavesNothingCounted) {
  Serve();
  m_worker.TakeRange(0, 1000, 0);
  ASSERT_TRUE(m_worker.RequestHttpData(nullptr, nullptr));
  const LogReader log;
  EXPECT_FALSE(m_worker.RecvDataAndSaveToFile(m_worker.connection(), nullptr, 0));
  EXPECT_EQ(log.LinesOfThisThread().back(), "[INFO] CDownloadBase RecvDataAndSaveToFile 7");
  EXPECT_EQ(m_worker.received(), 0);
  EXPECT_EQ(m_worker.range().buffered(), 0);
  EXPECT_EQ(m_worker.GetRemainingBytes(), 1000);
  EXPECT_TRUE(m_worker.TryCut(1));
}

// --- Assignment --------------------------------------------------------------------------------

TEST_F(WorkerRunTest, LengthBeyondTheKnownSizeIsCutAndBothAreTold) {
  m_server.Serve("/p", m_file);
  TestWorker probe;
  Prepare(probe, "/p", kProbeIndex);
  ASSERT_TRUE(probe.GetRemoteSiteInfo_Pro());
  Run(probe, 0, 5'000'000);
  EXPECT_EQ(probe.GetRangeLength(), m_file.size());
  EXPECT_TRUE(probe.succeeded());
  EXPECT_EQ(m_observer.NumbersOf(kEventRangeLength), (Numbers{5'000'000, m_file.size()}));
}

TEST_F(WorkerRunTest, TakenRangeWaitsWithoutEventOrThread) {
  m_worker.SetSucceeded();
  m_worker.TakeRange(10, 20, 5);
  EXPECT_FALSE(m_worker.succeeded());
  EXPECT_FALSE(m_worker.HasThread());
  EXPECT_EQ(m_worker.GetRemainingBytes(), 15);
  EXPECT_TRUE(m_observer.Events().empty());
}

TEST_F(WorkerRunTest, WorkerRunsAgainOnAnotherRange) {
  Serve();
  Run(m_worker, 0, 100);
  m_worker.CloseThread();
  m_worker.TakeRange(500, 100, 0);
  Run(m_worker, 500, 100);
  EXPECT_TRUE(m_worker.succeeded());
  ExpectRange(0, 100);
  ExpectRange(500, 600);
  ExpectUntouched(100, 500);
}

TEST_F(WorkerRunTest, ResetForgetsRangeAndResult) {
  Serve();
  Run(m_worker, 0, 100);
  m_worker.Reset();
  EXPECT_FALSE(m_worker.succeeded());
  EXPECT_FALSE(m_worker.HasThread());
  EXPECT_EQ(m_worker.GetRangeLength(), 0);
  EXPECT_EQ(m_worker.received(), 0);
}

TEST_F(WorkerRunTest, ThrowingObserverFailsTheRunAndStaysOnTheThread) {
  class Thrower : public IObserver {
   public:
    void Notify(TaskEvent* event, std::intptr_t /*message_parameter*/) override {
      const bool buffered = event->type == kEventBufferedBytes;
      FreeEvent(event);
      if (buffered) throw std::bad_alloc();
    }
  };
  Serve();
  Thrower thrower;
  WorkerSetup setup = MakeSetup();
  setup.observer = &thrower;
  m_worker.Configure(setup);
  const Lines lines = Run(m_worker, 0, m_file.size());
  EXPECT_FALSE(m_worker.succeeded());
  EXPECT_EQ(lines.back(), "[INFO] DownloadEnd 2");
  EXPECT_EQ(m_worker.range().buffered(), 0);
  EXPECT_EQ(m_worker.connection().ip(), 0U);
}

// --- Host counts -------------------------------------------------------------------------------

// A server on an address of its own, since the table keeps what it knows. An answer that comes too
// late for the table's look leaves the one address as it is.
class WorkerHostTest : public WorkerRunTest {
 protected:
  void SetUp() override {
    WorkerRunTest::SetUp();
    static int s_next = 1;
    m_host = "127.0.9." + std::to_string(s_next++);
    m_near.emplace(m_host);
    m_near->Serve("/f", m_file);
    m_url = m_near->Url("/f");
    ASSERT_TRUE(DownHostMgr::Shared().InitHost(m_url.c_str(), nullptr));
    ASSERT_TRUE(m_worker.SetUrl(m_url));
  }
  [[nodiscard]] int Uses() const {
    return DownHostMgr::Shared()
        .Addresses(std::wstring(m_host.begin(), m_host.end()))
        .at(AddressOf(m_host));
  }

  std::string m_host;
  std::wstring m_url;
  std::optional<FaultServer> m_near;
};

TEST_F(WorkerHostTest, RunGivesBackWhatItTook) {
  Run(m_worker, 0, 100);
  EXPECT_TRUE(m_worker.succeeded());
  EXPECT_EQ(Uses(), 0);
}

TEST_F(WorkerHostTest, StoppedRunGivesItsConnectionBackOnce) {
  Gate gate;
  m_near->Serve("/stall", m_file).StallingAfter(100, gate);
  ASSERT_TRUE(m_worker.SetUrl(m_near->Url("/stall")));
  ASSERT_TRUE(m_worker.Download(0, m_file.size(), 0));
  ASSERT_TRUE(gate.AwaitArrivals());
  EXPECT_EQ(Uses(), 2);  // the connection before the request, which nobody gives back, and its own
  StopPromptly(m_worker);
  EXPECT_EQ(Uses(), 1);
}

TEST_F(WorkerHostTest, PeerThatClosesKeepsItsAddressInUse) {
  m_near->Serve("/short", m_file).ClosingAfter(10);
  ASSERT_TRUE(m_worker.SetUrl(m_near->Url("/short")));
  Run(m_worker, 0, 100);
  EXPECT_FALSE(m_worker.succeeded());
  EXPECT_EQ(Uses(), 4);
}

TEST_F(WorkerHostTest, RemoteInfoIsLearnedAndItsConnectionGivenBack) {
  TestWorker probe;
  probe.Configure(MakeSetup(kProbeIndex));
  ASSERT_TRUE(probe.SetUrl(m_url));
  const LogReader log;
  EXPECT_TRUE(probe.GetRemoteSiteInfo());
  const Lines lines = log.LinesOfThisThread();
  EXPECT_EQ(lines.front(), "[INFO] CDownloadBase GetRemoteSiteInfo 1");
  EXPECT_EQ(CountOf(lines, "[INFO] CDownloadBase GetRemoteSiteInfo 2"), 1);
  EXPECT_EQ(lines.back(), "[INFO] CDownloadBase GetRemoteSiteInfo 3");
  EXPECT_EQ(probe.content_length(), m_file.size());
  EXPECT_FALSE(probe.connection().connected());
  EXPECT_EQ(Uses(), 0);
}

TEST_F(WorkerHostTest, RemoteInfoThatIsRefusedGivesItsConnectionBack) {
  m_near->Serve("/gone", m_file).WithStatus("410 Gone");
  TestWorker probe;
  probe.Configure(MakeSetup(kProbeIndex));
  ASSERT_TRUE(probe.SetUrl(m_near->Url("/gone")));
  const LogReader log;
  EXPECT_FALSE(probe.GetRemoteSiteInfo());
  EXPECT_EQ(log.LinesOfThisThread().back(), "[INFO] CDownloadBase GetRemoteSiteInfo 4");
  EXPECT_FALSE(probe.connection().connected());
  EXPECT_EQ(Uses(), 0);
}

}  // namespace
}  // namespace Tarnlo::test
