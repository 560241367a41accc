// The limits on time at their real length, all at once.
#include "hosts/down_host_mgr.h"
#include "support/simple_log.h"
#include "tests/support/full_listener.h"
#include "tests/transfer/worker_fixture.h"

namespace Tarnlo::test {
namespace {

using Lines = std::vector<std::string>;

struct Outcome {
  int result = 0;
  double seconds = 0;
  Lines lines;
  bool connected = false;
};

// Runs the operation on a connected socket, on a thread of its own.
class TimedCall {
 public:
  template <typename Operation>
  explicit TimedCall(Operation operation)
      : m_thread([this, operation] {
          m_thread_id = os::CurrentThreadId();
          const auto begin = std::chrono::steady_clock::now();
          m_outcome.result = operation();
          const std::chrono::duration<double> duration = std::chrono::steady_clock::now() - begin;
          m_outcome.seconds = duration.count();
        }) {}

  // Ends the thread; its log lines too.
  Outcome Join(const LogReader& log) {
    m_thread.join();
    m_outcome.lines = log.LinesOf(m_thread_id);
    return m_outcome;
  }

 private:
  Outcome m_outcome;
  std::uint32_t m_thread_id = 0;
  std::jthread m_thread;
};

struct Pair {
  Pair() : listener("127.0.0.1", 0, 8) {
    EXPECT_TRUE(socket.Connect(AddressOf("127.0.0.1"), listener.port()));
    peer = listener.Accept(30'000);
    EXPECT_TRUE(peer.valid());
  }
  TestListener listener;
  CCustomizeSocket socket;
  TestSocket peer;
};

void ExpectSeconds(double seconds, double limit) {
  EXPECT_GE(seconds, limit - 0.1);
  EXPECT_LT(seconds, limit + limit / 2);
}

// Sends until the peer, which never reads, has taken all it takes in; how long the last send took.
int SendUntilRefused(CCustomizeSocket& socket, double& seconds) {
  const std::string piece(1000, 'x');
  for (int sent = 0; sent < 100'000; ++sent) {
    const auto begin = std::chrono::steady_clock::now();
    const bool taken = socket.Send(piece.data(), static_cast<std::int32_t>(piece.size()));
    seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
    if (!taken) return 0;
  }
  return 1;
}

void ExpectRefusedAfter(const Outcome& connected, double limit) {
  EXPECT_EQ(connected.result, 0);
  ExpectSeconds(connected.seconds, limit);
  EXPECT_EQ(connected.lines, Lines{"[WARN] CCustomizeSocket Connect 6"});
}

// With a worker whose server sends 900 bytes a second, and then, asked again, all.
class SlowTransferTest : public WorkerTest {
 protected:
  void SetUp() override {
    m_near.Serve("/known", m_file);
    m_near.Serve("/slow", m_file).Times(1).Trickling(900);
    m_near.Serve("/slow", m_file);
    ASSERT_TRUE(DownHostMgr::Shared().InitHost(m_near.Url("/known").c_str(), nullptr));
    MakeTarget(m_file.size());
    WorkerSetup setup = MakeSetup();
    setup.progress = &LogProgress;
    setup.progress_context = this;
    m_worker.Configure(setup);
    ASSERT_TRUE(m_worker.SetUrl(m_near.Url("/slow")));
  }
  void StartWorker() {
    m_begin = std::chrono::steady_clock::now();
    ASSERT_TRUE(m_worker.Download(0, m_file.size(), 0));
    m_worker_thread = m_worker.thread_id();
  }
  void ExpectStalledOnceAndComplete(const LogReader& log);

 private:
  // A line among the worker's own: what it tells, and how it stands then.
  static void LogProgress(std::int32_t /*index*/, std::int64_t /*received*/, std::int64_t delta,
                          void* context) {
    const auto& self = *static_cast<SlowTransferTest*>(context);
    const int uses = DownHostMgr::Shared()
                         .Addresses(std::wstring(kNear.begin(), kNear.end()))
                         .at(AddressOf(kNear));
    LogInfo("%ld more, %ld buffered, %d in use", Low32(delta),
            Low32(self.m_worker.range().buffered()), uses);
  }

  inline static const std::string kNear = "127.0.8.1";
  const Body m_file{200'000};
  FaultServer m_near{kNear};
  TestWorker m_worker;
  std::uint32_t m_worker_thread = 0;
  std::chrono::steady_clock::time_point m_begin;
};

void SlowTransferTest::ExpectStalledOnceAndComplete(const LogReader& log) {
  AwaitEnd(m_worker);
  const std::chrono::duration<double> stalled = std::chrono::steady_clock::now() - m_begin;
  ExpectSeconds(stalled.count() + 1, 16);  // the clock counts whole seconds
  const Lines lines = log.LinesOf(m_worker_thread);
  const std::string stall = "[WARN] CDownloadBase RecvDataAndSaveToFile network err 6 !";
  ASSERT_EQ(std::count(lines.begin(), lines.end(), stall), 1);
  const auto at = std::find(lines.begin(), lines.end(), stall);
  ASSERT_GE(at - lines.begin(), 1);
  ASSERT_GE(lines.end() - at, 7);
  // Nothing is written in between, and no connection given back: two are taken, one before the
  // request and one for it.
  EXPECT_EQ(Lines(at - 1, at + 7),
            (Lines{"[INFO] CDownloadBase RecvDataAndSaveToFile: " + kNear, stall,
                   "[INFO] CDownloadBase RecvDataAndSaveToFile 7", "[INFO] ThreadProc_Download 4",
                   "[INFO] ThreadProc_Download 5", "[INFO] 0 more, 0 buffered, 2 in use",
                   "[INFO] ThreadProc_Download 6", "[INFO] ThreadProc_Download 2"}));
  EXPECT_EQ(m_worker.range().buffered(), 0);
  // What had come was dropped and asked for again, but for what came together with the head.
  const std::vector<RecordedRequest> requests = m_near.RequestsFor("/slow");
  ASSERT_EQ(requests.size(), 2U);
  EXPECT_EQ(requests[0].Header("Range"), "bytes=0-199999");
  const std::string second_range = requests[1].Header("Range");
  ASSERT_TRUE(second_range.starts_with("bytes=") && second_range.ends_with("-199999"));
  EXPECT_LT(std::atoi(second_range.c_str() + 6), 2000) << second_range;
  EXPECT_TRUE(m_worker.succeeded());
  EXPECT_EQ(FileDifference(Target(), m_file), "");
}

TEST_F(SlowTransferTest, EveryLimitOnTimeHoldsAtItsRealLength) {
  const LogReader log;
  Pair silent;
  Pair stuffed;
  const FullListener full;
  CCustomizeSocket refused;
  CCustomizeSocket hanging;
  const std::uint16_t free_port = TestListener("127.0.0.1", 0, 1).port();
  char byte = 0;
  double last_send = 0;
  StartWorker();
  TimedCall receive([&] { return silent.socket.Receive(&byte, 1); });
  TimedCall send([&] { return SendUntilRefused(stuffed.socket, last_send); });
  TimedCall no_listener([&] { return refused.Connect(AddressOf("127.0.0.1"), free_port) ? 1 : 0; });
  TimedCall full_backlog(
      [&] { return hanging.Connect(AddressOf("127.0.0.1"), full.port()) ? 1 : 0; });

  const Outcome received = receive.Join(log);
  EXPECT_EQ(received.result, -1);
  ExpectSeconds(received.seconds, 10);
  EXPECT_EQ(received.lines, Lines{"[INFO] CCustomizeSocket Receive err 4"});
  EXPECT_TRUE(silent.socket.connected());
  ExpectRefusedAfter(no_listener.Join(log), 10);
  ExpectRefusedAfter(full_backlog.Join(log), 10);
  ExpectStalledOnceAndComplete(log);

  const Outcome sent = send.Join(log);
  EXPECT_EQ(sent.result, 0);
  ExpectSeconds(last_send, 30);
  EXPECT_EQ(sent.lines, Lines{});
}

}  // namespace
}  // namespace Tarnlo::test
