// The limits on time at their real length, all at once.
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

  Outcome Join(const LogReader& log) {
    m_thread.join();
    m_outcome.lines = log.LinesOf(m_thread_id);
    return m_outcome;
  }

 private:
  Outcome m_outcome;
  std::uint32_t m_thread_id = 0;
  std::thread m_thread;
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

// Sends until the peer, which never reads, has taken all it takes in.
int SendUntilRefused(CCustomizeSocket& socket) {
  const std::string piece(1000, 'x');
  for (int sent = 0; sent < 100'000; ++sent) {
    if (!socket.Send(piece.data(), static_cast<std::int32_t>(piece.size()))) return 0;
  }
  return 1;
}

class SlowTransferTest : public WorkerTest {};

TEST_F(SlowTransferTest, EveryLimitOnTimeHoldsAtItsRealLength) {
  const LogReader log;
  Pair silent;
  Pair stuffed;
  const FullListener full;
  CCustomizeSocket refused;
  CCustomizeSocket hanging;
  const std::uint16_t free_port = TestListener("127.0.0.1", 0, 1).port();
  char byte = 0;

  // A worker whose server sends 900 bytes a second, and then, asked again, all.
  const Body file(200'000);
  m_server.Serve("/slow", file).Times(1).Trickling(900);
  m_server.Serve("/slow", file);
  MakeTarget(file.size());
  TestWorker worker;
  Prepare(worker, "/slow");
  const auto begin = std::chrono::steady_clock::now();
  ASSERT_TRUE(worker.Download(0, file.size(), 0));
  const std::uint32_t worker_thread = worker.thread_id();

  TimedCall receive([&] { return silent.socket.Receive(&byte, 1); });
  TimedCall send([&] { return SendUntilRefused(stuffed.socket); });
  TimedCall no_listener([&] { return refused.Connect(AddressOf("127.0.0.1"), free_port) ? 1 : 0; });
  TimedCall full_backlog(
      [&] { return hanging.Connect(AddressOf("127.0.0.1"), full.port()) ? 1 : 0; });

  const Outcome received = receive.Join(log);
  EXPECT_EQ(received.result, -1);
  ExpectSeconds(received.seconds, 10);
  EXPECT_EQ(received.lines, Lines{"[INFO] CCustomizeSocket Receive err 4"});
  EXPECT_TRUE(silent.socket.connected());

  for (TimedCall* call : {&no_listener, &full_backlog}) {
    const Outcome connected = call->Join(log);
    EXPECT_EQ(connected.result, 0);
    ExpectSeconds(connected.seconds, 10);
    EXPECT_EQ(connected.lines, Lines{"[WARN] CCustomizeSocket Connect 6"});
  }

  AwaitEnd(worker);
  const std::chrono::duration<double> stalled = std::chrono::steady_clock::now() - begin;
  ExpectSeconds(stalled.count() + 1, 16);  // the clock counts whole seconds
  const Lines lines = log.LinesOf(worker_thread);
  EXPECT_EQ(std::count(lines.begin(), lines.end(),
                       "[WARN] CDownloadBase RecvDataAndSaveToFile network err 6 !"),
            1);
  // What had come was dropped and asked for again, but for what came together with the head.
  EXPECT_EQ(m_server.Requests().at(0).Header("Range"), "bytes=0-199999");
  const std::string second_range = m_server.Requests().at(1).Header("Range");
  ASSERT_TRUE(second_range.starts_with("bytes=") && second_range.ends_with("-199999"));
  EXPECT_LT(std::atoi(second_range.c_str() + 6), 2000) << second_range;
  EXPECT_TRUE(worker.succeeded());
  EXPECT_EQ(FileDifference(Target(), file), "");

  const Outcome sent = send.Join(log);
  EXPECT_EQ(sent.result, 0);
  ExpectSeconds(sent.seconds, 30);
  EXPECT_EQ(sent.lines, Lines{});
}

}  // namespace
}  // namespace Tarnlo::test
