// A stop finds a worker wherever it is, and ends it without force.
#include "support/simple_log.h"
#include "tests/faults/faults.h"
#include "tests/support/full_listener.h"
#include "tests/transfer/worker_fixture.h"

namespace Tarnlo::test {
namespace {

using os::Call;

class WorkerStopTest : public WorkerTest {
 protected:
  void SetUp() override {
    MakeTarget(m_file.size());
    Prepare(m_worker, "/f");
  }
  // How often a worker has begun to wait for a moment, after which it looks at the stop event.
  [[nodiscard]] int Waits() const {
    return m_faults.Calls(Call::kWaitReadable) + m_faults.Calls(Call::kWaitWritable);
  }
  // And it begins no moment's wait any more but the one on whose verge it may have been.
  void StopPromptly(TestWorker& worker) {
    worker.SignalStop();
    const int waits = Waits();
    WorkerTest::StopPromptly(worker);
    EXPECT_LE(Waits(), waits + 1);
  }
  // Starts, waits until the worker is where the test wants it, and stops it there.
  template <typename Place>
  Lines StopAt(Place arrived, std::int64_t length = 1'000'000) {
    const LogReader log;
    EXPECT_TRUE(m_worker.Download(0, length, 0));
    const std::uint32_t thread = m_worker.thread_id();
    EXPECT_TRUE(arrived(log));
    StopPromptly(m_worker);
    EXPECT_FALSE(m_worker.HasThread());
    EXPECT_EQ(m_worker.connection().ip(), 0U);
    return log.LinesOf(thread);
  }
  static void ExpectEnd(const Lines& lines, const Lines& end) {
    ASSERT_GE(lines.size(), end.size());
    EXPECT_EQ(Lines(lines.end() - static_cast<std::ptrdiff_t>(end.size()), lines.end()), end);
  }

  // Waits until the worker waits for bytes behind the first `bytes`, and has looked at the stop
  // event since.
  bool AwaitStall(const TestWorker& worker, std::int64_t bytes) {
    return m_gate.AwaitArrivals() &&
           AwaitWhileRunning(
               worker, [&] { return worker.received() + worker.range().buffered() == bytes; }) &&
           m_faults.AwaitMoreCalls(Call::kWaitReadable, 2);
  }
  // Of a worker that logs every write among its steps.
  void PrepareLoggingWrites(TestWorker& worker) {
    Prepare(worker, "/f");
    WorkerSetup setup = MakeSetup();
    setup.progress = [](std::int32_t, std::int64_t received, std::int64_t, void*) {
      LogInfo("received %ld", Low32(received));
    };
    worker.Configure(setup);
  }
  // The end of a worker that was stopped in a receive.
  static Lines EndOfAStalled(int received) {
    return {"[INFO] CCustomizeSocket Receive err 6",
            "[WARN] CDownloadBase RecvDataAndSaveToFile 5",
            "[INFO] received " + std::to_string(received),
            "[INFO] CDownloadBase RecvDataAndSaveToFile 7",
            "[INFO] ThreadProc_Download 4",
            "[INFO] ThreadProc_Download 5",
            "[INFO] received 0",  // as every failed attempt tells
            "[INFO] ThreadProc_Download 6",
            "[INFO] DownloadEnd 1",
            "[INFO] DownloadEnd 2"};
  }

  const Body m_file{1'000'000};
  Faults m_faults;
  Gate m_gate;
  TestWorker m_worker;
};

TEST_F(WorkerStopTest, WhileTheServerDoesNotAnswer) {
  m_server.Serve("/f", m_file).HoldingAnswer(m_gate);
  const Lines lines = StopAt([&](const LogReader&) { return m_gate.AwaitArrivals(); });
  ExpectEnd(lines, {"[INFO] CDownloadHttp SendRequest 4", "[INFO] CCustomizeSocket Receive err 6",
                    "[INFO] CDownloadHttp SendRequest 5", "[INFO] CDownloadHttp RequestHttpData 2",
                    "[INFO] CDownloadHttp DownloadOnce 3: 20480", "[INFO] ThreadProc_Download 4",
                    "[INFO] ThreadProc_Download 5", "[INFO] ThreadProc_Download 6",
                    "[INFO] DownloadEnd 1", "[INFO] DownloadEnd 2"});
  EXPECT_FALSE(m_worker.succeeded());
}

TEST_F(WorkerStopTest, WhileTheBodyStallsWithWhatWasCollectedWritten) {
  m_server.Serve("/f", m_file).StallingAfter(50'000, m_gate);
  PrepareLoggingWrites(m_worker);
  const Lines lines = StopAt([&](const LogReader&) { return AwaitStall(m_worker, 50'000); });
  EXPECT_EQ(m_worker.received(), 50'000);
  EXPECT_EQ(m_worker.range().buffered(), 0);
  EXPECT_EQ(FileDifference(Target(), m_file, 0, 50'000), "");
  ExpectEnd(lines, EndOfAStalled(50'000));
}

TEST_F(WorkerStopTest, WhileBytesAreFlowing) {
  const Body large(std::int64_t{4} << 30);
  m_server.Serve("/f", large);
  const LogReader log;
  ASSERT_TRUE(m_worker.Download(0, kOpenEnd, 0));
  const std::uint32_t thread = m_worker.thread_id();
  ASSERT_TRUE(AwaitWhileRunning(m_worker, [&] { return m_worker.received() >= 2'000'000; }));
  StopPromptly(m_worker);
  // Found at the look at the event or in the receive.
  const Lines lines = log.LinesOf(thread);
  EXPECT_EQ(
      std::count(lines.begin(), lines.end(), "[WARN] CDownloadBase RecvDataAndSaveToFile 4") +
          std::count(lines.begin(), lines.end(), "[WARN] CDownloadBase RecvDataAndSaveToFile 5"),
      1);
  EXPECT_EQ(FileDifference(Target(), large, 0, m_worker.received()), "");
  EXPECT_EQ(static_cast<std::int64_t>(std::filesystem::file_size(m_path)), m_worker.received());
}

TEST_F(WorkerStopTest, WhileTheConnectionIsBeingMade) {
  const FullListener listener;
  ASSERT_TRUE(m_worker.SetUrl(listener.Url()));
  const Lines lines =
      StopAt([](const LogReader& log) { return log.Await("CDownloadBase DownloadOnce 3"); });
  // Found at the name's resolution or in the wait for the connection.
  const std::string& last_try = lines.at(lines.size() - 7);
  EXPECT_TRUE(last_try == "[WARN] CCustomizeSocket Connect 2" ||
              last_try == "[WARN] CCustomizeSocket Connect 6")
      << last_try;
  ExpectEnd(lines, {"[INFO] CDownloadBase DownloadOnce 4", "[INFO] ThreadProc_Download 4",
                    "[INFO] ThreadProc_Download 5", "[INFO] ThreadProc_Download 6",
                    "[INFO] DownloadEnd 1", "[INFO] DownloadEnd 2"});
}

TEST_F(WorkerStopTest, WhileItFollowsRedirectsForEver) {
  m_server.Serve("/f").RedirectingTo("/f");
  const Lines lines = StopAt(
      [](const LogReader& log) { return log.Await("CDownloadHttp ParseResponseString 4", 20); });
  ExpectEnd(lines,
            {"[INFO] ThreadProc_Download 4", "[INFO] ThreadProc_Download 5",
             "[INFO] ThreadProc_Download 6", "[INFO] DownloadEnd 1", "[INFO] DownloadEnd 2"});
}

TEST_F(WorkerStopTest, WhileTheHeadTrickles) {
  m_server.Serve("/f", m_file).SplittingHeadAt(10, m_gate);
  const Lines lines =
      StopAt([](const LogReader& log) { return log.Await("CDownloadHttp SendRequest 4", 2); });
  ExpectEnd(lines, {"[INFO] DownloadEnd 1", "[INFO] DownloadEnd 2"});
}

TEST_F(WorkerStopTest, InThePauseBeforeTheSecondAttempt) {
  m_server.Serve("/f", m_file).WithStatus("404 Not Found");
  m_faults.WatchWaits(100, 60'000);  // the pause, made long enough for any machine
  const Lines lines = StopAt([&](const LogReader&) { return m_faults.AwaitWaits(1); });
  ExpectEnd(lines,
            {"[INFO] ThreadProc_Download 6", "[INFO] DownloadEnd 1", "[INFO] DownloadEnd 2"});
}

TEST_F(WorkerStopTest, BeforeItStarts) {
  m_server.Serve("/f", m_file);
  m_worker.SignalStop();
  ASSERT_TRUE(m_worker.Download(0, 100, 0));
  StopPromptly(m_worker);
  EXPECT_FALSE(m_worker.succeeded());
  EXPECT_TRUE(m_server.Requests().empty());
}

TEST_F(WorkerStopTest, AfterItEndedAndTwice) {
  m_server.Serve("/f", m_file);
  Run(m_worker, 0, 100);
  StopPromptly(m_worker);
  StopPromptly(m_worker);
  EXPECT_TRUE(m_worker.succeeded());
}

TEST_F(WorkerStopTest, ProbeOnTheCallersThread) {
  m_server.Serve("/f", m_file).HoldingAnswer(m_gate);
  m_worker.Configure(MakeSetup(kProbeIndex));
  std::atomic<bool> answered{true};
  std::jthread caller([&] { answered = m_worker.GetRemoteSiteInfo_Pro(); });
  ASSERT_TRUE(m_gate.AwaitArrivals());
  const std::uint32_t begin = os::TickMs();
  m_worker.SignalStop();
  const int waits = Waits();
  caller.join();
  EXPECT_LT(os::TickMs() - begin, kStopLimitMs / 2);
  EXPECT_LE(Waits(), waits + 1);
  EXPECT_FALSE(answered);
}

TEST_F(WorkerStopTest, DestructionStops) {
  m_server.Serve("/f", m_file).StallingAfter(10, m_gate);
  auto worker = std::make_unique<TestWorker>();
  PrepareLoggingWrites(*worker);
  const LogReader log;
  ASSERT_TRUE(worker->Download(0, 1000, 0));
  const std::uint32_t thread = worker->thread_id();
  ASSERT_TRUE(AwaitStall(*worker, 10));
  const std::uint32_t begin = os::TickMs();
  worker.reset();
  EXPECT_LT(os::TickMs() - begin, kStopLimitMs / 2);
  ExpectEnd(log.LinesOf(thread), EndOfAStalled(10));
}

// Random places, then random moments of a fast transfer: what is counted is in the file, and the
// next run needs nothing twice.
TEST_F(WorkerStopTest, ManyStopsAndContinuesGiveTheFile) {
  constexpr int kStalls = 8;
  std::int64_t received = 0;
  std::uint32_t random = 12345;
  for (int run = 0; run < kStalls; ++run) {
    random = random * 1664525 + 1013904223;
    const std::int64_t sent = 1 + random % 90'000;
    const Gate gate;
    m_server.Serve("/f", m_file).Times(1).StallingAfter(sent, gate);
    TestWorker worker;
    Prepare(worker, "/f");
    ASSERT_TRUE(worker.Download(0, m_file.size(), received));
    ASSERT_TRUE(gate.AwaitArrivals());
    StopPromptly(worker);
    ASSERT_GE(worker.received(), received);
    ASSERT_LE(worker.received(), received + sent);
    received = worker.received();
  }
  m_server.Serve("/f", m_file);
  while (received < m_file.size()) {
    random = random * 1664525 + 1013904223;
    // The last bytes before which this run is to be stopped.
    const std::int64_t until = received + 1 + random % 90'000;
    TestWorker worker;
    Prepare(worker, "/f");
    ASSERT_TRUE(worker.Download(0, m_file.size(), received));
    ASSERT_TRUE(AwaitWhileRunning(worker, [&] {
      return m_file.size() - worker.GetRemainingBytes() >= std::min(until, m_file.size());
    }));
    StopPromptly(worker);
    ASSERT_GT(worker.received(), received);
    received = worker.received();
  }
  EXPECT_EQ(FileDifference(Target(), m_file), "");
}

}  // namespace
}  // namespace Tarnlo::test
