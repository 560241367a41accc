// What the system refuses a connection or a worker: sockets, waits, threads, memory, the file.
#include <gtest/gtest.h>

#include <array>

#include "tests/faults/faults.h"
#include "tests/support/process_usage.h"
#include "tests/support/test_socket.h"
#include "tests/transfer/worker_fixture.h"
#include "transfer/custom_socket.h"

namespace Tarnlo::test {
namespace {

using os::Call;
using Lines = std::vector<std::string>;

// 127.0.0.1 in network order, as the log shows it.
constexpr char kAddressNumber[] = "16777343";

class SocketFaultTest : public testing::Test {
 protected:
  bool Connect() { return m_socket.Connect(AddressOf("127.0.0.1"), m_listener.port()); }
  // A connect that fails with this line alone and leaves nothing open.
  void ExpectRefused(const std::string& line) {
    const LogReader log;
    EXPECT_FALSE(Connect());
    EXPECT_EQ(log.LinesOfThisThread(), Lines{line});
    EXPECT_FALSE(m_socket.connected());
    EXPECT_EQ(m_socket.ip(), 0U);
    EXPECT_TRUE(Connect());  // nothing of it stands in the way
  }

  TestListener m_listener{"127.0.0.1", 0, 200};
  CCustomizeSocket m_socket;
  Faults m_faults;
};

TEST_F(SocketFaultTest, NoSocketIsRefusalThree) {
  m_faults.Fail(Call::kSocket);
  ExpectRefused(std::string("[WARN] CCustomizeSocket Connect 3: ") + kAddressNumber);
}

TEST_F(SocketFaultTest, SocketThatStaysBlockingIsRefusalFour) {
  m_faults.Fail(Call::kSetBlocking);
  ExpectRefused("[WARN] CCustomizeSocket Connect 4: -1");
}

TEST_F(SocketFaultTest, ConnectThatFailsAtOnceIsRefusalFive) {
  m_faults.Fail(Call::kConnect);
  ExpectRefused("[WARN] CCustomizeSocket Connect 5: -1");
}

TEST_F(SocketFaultTest, SocketThatStaysNonBlockingIsRefusalSeven) {
  m_faults.Fail(Call::kSetBlocking, 2);
  ExpectRefused("[WARN] CCustomizeSocket Connect 7: -1");
}

TEST_F(SocketFaultTest, RefusedSocketsAreClosed) {
  ASSERT_TRUE(Connect());
  const int handles = OpenHandles();
  for (const auto& [call, first] : {std::pair{Call::kSetBlocking, 1}, std::pair{Call::kConnect, 1},
                                    std::pair{Call::kSetBlocking, 2}}) {
    for (int round = 0; round < 50; ++round) {
      m_faults.Fail(call, first);
      EXPECT_FALSE(Connect());
    }
  }
  EXPECT_LE(SettledHandles(handles), handles);
}

TEST_F(SocketFaultTest, WaitThatCannotBeMadeCountsAsConnected) {
  m_faults.Fail(Call::kWaitWritable);
  const LogReader log;
  EXPECT_TRUE(Connect());
  EXPECT_EQ(log.LinesOfThisThread(), Lines{"[INFO] CCustomizeSocket Connect ip: 127.0.0.1"});
}

TEST_F(SocketFaultTest, ReceiveWhoseWaitFailsIsErrorThreeAndStaysConnected) {
  ASSERT_TRUE(Connect());
  const LogReader log;
  m_faults.Fail(Call::kWaitReadable);
  std::array<char, 10> buffer{};
  EXPECT_EQ(m_socket.Receive(buffer.data(), buffer.size()), -1);
  EXPECT_EQ(log.LinesOfThisThread(), Lines{"[INFO] CCustomizeSocket Receive err 3"});
  EXPECT_TRUE(m_socket.connected());
}

TEST_F(SocketFaultTest, ReceiveThatFailsIsErrorSixAndStaysConnected) {
  ASSERT_TRUE(Connect());
  TestSocket peer = m_listener.Accept(30'000);
  ASSERT_TRUE(peer.valid());
  ASSERT_EQ(peer.Send("bytes", 5), 5);
  const LogReader log;
  m_faults.Fail(Call::kReceive);
  std::array<char, 10> buffer{};
  EXPECT_EQ(m_socket.Receive(buffer.data(), buffer.size()), -1);
  EXPECT_EQ(log.LinesOfThisThread(), Lines{"[INFO] CCustomizeSocket Receive err 6"});
  EXPECT_TRUE(m_socket.connected());
  EXPECT_EQ(m_socket.Receive(buffer.data(), buffer.size()), 5);
}

TEST_F(SocketFaultTest, SendThatFailsOrCannotWaitFailsWithoutALine) {
  ASSERT_TRUE(Connect());
  const LogReader log;
  m_faults.Fail(Call::kSend);
  EXPECT_FALSE(m_socket.Send("x", 1));
  m_faults.Fail(Call::kWaitWritable);
  EXPECT_FALSE(m_socket.Send("x", 1));
  EXPECT_TRUE(m_socket.Send("x", 1));
  EXPECT_TRUE(log.LinesOfThisThread().empty());
}

TEST(NetworkFaultTest, SocketsThatWereNotGrantedAreNotGivenBack) {
  const TestListener listener("127.0.0.1", 0, 8);  // keeps the system's sockets for this process
  {
    Faults faults;
    faults.Fail(Call::kStartNetwork);
    const CCustomizeSocket refused;
    EXPECT_EQ(faults.Failed(), 1);
  }
  CCustomizeSocket socket;
  EXPECT_TRUE(socket.Connect(AddressOf("127.0.0.1"), listener.port()));
}

class WorkerFaultTest : public WorkerTest {
 protected:
  void SetUp() override {
    MakeTarget(m_file.size());
    Prepare(m_worker, "/f");
    m_server.Serve("/f", m_file).LeadingBody(100);
  }
  // The run's lines between its first attempt's beginning and its failure.
  Lines FirstAttempt(std::int64_t start, std::int64_t length) {
    const Lines lines = Run(m_worker, start, length);
    const auto failed = std::find(lines.begin(), lines.end(), "[INFO] ThreadProc_Download 4");
    EXPECT_NE(failed, lines.end());
    return {lines.begin(), failed};
  }
  // How many body bytes came with the head of the first answer.
  static std::int64_t LeadingBytes(const Lines& lines) {
    const std::string begin = "[INFO] CDownloadHttp DownloadOnce 4: ";
    const auto line = std::find_if(lines.begin(), lines.end(),
                                   [&](const auto& each) { return each.starts_with(begin); });
    return line == lines.end() ? -1 : std::stoll(line->substr(begin.size()));
  }
  [[nodiscard]] std::string LastRange() const { return m_server.Requests().back().Header("Range"); }
  // The second attempt brought the rest.
  void ExpectComplete(std::int64_t begin, std::int64_t end) {
    EXPECT_TRUE(m_worker.succeeded());
    EXPECT_EQ(m_worker.received(), end - begin);
    EXPECT_EQ(FileDifference(Target(), m_file, begin, end), "");
    EXPECT_EQ(m_worker.range().buffered(), 0);
  }

  const Body m_file{1'000'000};
  TestWorker m_worker;
  Faults m_faults;
};

TEST_F(WorkerFaultTest, ThreadThatCannotBeStartedIsSaidAndLeavesTheRange) {
  m_faults.Fail(Call::kThread);
  const LogReader log;
  EXPECT_FALSE(m_worker.Download(1000, 500, 20));
  EXPECT_EQ(log.LinesOfThisThread(), (Lines{"[INFO] CDownloadBase Download 1: 1000 500 20",
                                            "[INFO] CDownloadBase Download 2: 1000 500 20"}));
  EXPECT_FALSE(m_worker.HasThread());
  EXPECT_EQ(m_worker.GetRangeLength(), 500);
  EXPECT_EQ(m_worker.received(), 20);
  EXPECT_EQ(m_server.Requests().size(), 0u);
}

TEST_F(WorkerFaultTest, NoMemoryToCollectInKeepsTheLeadingBytesAndTheNextAttemptGoesOn) {
  m_faults.Fail(Call::kBuffer);
  const Lines lines = FirstAttempt(1000, 500'000);
  EXPECT_EQ(lines.back(), "[WARN] CDownloadBase RecvDataAndSaveToFile 3");
  ExpectComplete(1000, 501'000);
  EXPECT_GE(LeadingBytes(lines), 100);
  EXPECT_EQ(LastRange(), "bytes=" + std::to_string(1000 + LeadingBytes(lines)) + "-500999");
}

TEST_F(WorkerFaultTest, LeadingBytesThatCannotBeWrittenAreAskedForAgain) {
  m_faults.Fail(Call::kWrite);
  const Lines lines = FirstAttempt(1000, 500);
  EXPECT_EQ(lines.back(), "[WARN] CDownloadBase RecvDataAndSaveToFile 2");
  ExpectComplete(1000, 1500);
  EXPECT_EQ(LastRange(), "bytes=1000-1499");
}

TEST_F(WorkerFaultTest, CollectedBytesThatCannotBeWrittenAreAskedForAgain) {
  m_faults.Fail(Call::kWrite, 2);
  const Lines lines = FirstAttempt(1000, 500'000);
  EXPECT_EQ(lines.back(), "[INFO] CDownloadBase RecvDataAndSaveToFile 7");
  ExpectComplete(1000, 501'000);
  EXPECT_EQ(LastRange(), "bytes=" + std::to_string(1000 + LeadingBytes(lines)) + "-500999");
}

TEST_F(WorkerFaultTest, WriteThatFallsShortCountsWhatItWrote) {
  m_faults.Fail(Call::kWriteWhole);
  const Lines lines = FirstAttempt(1000, 500'000);
  EXPECT_EQ(lines.back(), "[WARN] CDownloadBase RecvDataAndSaveToFile 2");
  ExpectComplete(1000, 501'000);
  EXPECT_EQ(LastRange(), "bytes=" + std::to_string(1000 + LeadingBytes(lines) / 2) + "-500999");
}

TEST_F(WorkerFaultTest, FileThatCannotBeOpenedFailsTheAttempt) {
  m_faults.Fail(Call::kOpenFile, 1, 2);  // once for a file that is there, once for a new one
  const Lines lines = FirstAttempt(1000, 500);
  EXPECT_EQ(lines.back(), "[INFO] CDownloadBase DownloadOnce 2");
  ExpectComplete(1000, 1500);
}

TEST_F(WorkerFaultTest, PositionThatIsNotReachedFailsTheAttempt) {
  m_faults.Fail(Call::kSeek);
  const Lines lines = FirstAttempt(1000, 500);
  EXPECT_EQ(lines.back(), "[INFO] CDownloadBase DownloadOnce 2");
  ExpectComplete(1000, 1500);
}

TEST_F(WorkerFaultTest, BodyWhoseReceiveFailsKeepsWhatCame) {
  m_server.Serve("/late", m_file).LeadingBody(0);
  ASSERT_TRUE(m_worker.SetUrl(m_server.Url("/late")));
  m_faults.Fail(Call::kReceive, 3);  // after the head and the first of the body
  const Lines lines = FirstAttempt(0, 500'000);
  ASSERT_GE(lines.size(), 3u);
  EXPECT_EQ(lines[lines.size() - 3], "[INFO] CCustomizeSocket Receive err 6");
  EXPECT_EQ(lines[lines.size() - 2], "[WARN] CDownloadBase RecvDataAndSaveToFile 5");
  EXPECT_EQ(lines.back(), "[INFO] CDownloadBase RecvDataAndSaveToFile 7");
  ExpectComplete(0, 500'000);
}

TEST_F(WorkerFaultTest, WorkerWithoutAStopEventConnectsNowhere) {
  m_faults.Fail(Call::kEvent);
  TestWorker worker;
  Prepare(worker, "/f");
  const Lines lines = Run(worker, 0, 500);
  EXPECT_FALSE(worker.succeeded());
  EXPECT_EQ(std::count(lines.begin(), lines.end(), "[INFO] CDownloadBase DownloadOnce 4"), 2);
  EXPECT_EQ(m_server.Requests().size(), 0u);
}

}  // namespace
}  // namespace Tarnlo::test
