#include "transfer/custom_socket.h"

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <optional>
#include <string>
#include <thread>

#include "support/os/clock.h"
#include "tests/faults/faults.h"
#include "tests/support/full_listener.h"
#include "tests/support/repeat_until.h"
#include "tests/support/test_log.h"
#include "tests/support/test_socket.h"

namespace Tarnlo {
namespace {

using os::Call;
using test::AddressOf;
using test::Faults;
using test::LogReader;
using test::TestListener;
using test::TestSocket;
using Lines = std::vector<std::string>;

constexpr std::uint32_t kPatienceMs = 30'000;

class CustomSocketTest : public testing::Test {
 protected:
  void Connect() {
    ASSERT_TRUE(m_socket.Connect(AddressOf("127.0.0.1"), m_listener.port()));
    m_peer = m_listener.Accept(kPatienceMs);
    ASSERT_TRUE(m_peer.valid());
  }
  // All that the peer gets until the connection ends.
  std::string PeerReceivesAll() {
    std::string bytes;
    std::array<char, 4096> chunk{};
    while (m_peer.WaitReadable(kPatienceMs)) {
      const int count = m_peer.Receive(chunk.data(), chunk.size());
      if (count < 1) break;
      bytes.append(chunk.data(), static_cast<std::size_t>(count));
    }
    return bytes;
  }

  // Stops the call when it has looked at the stop event in vain: it fails soon, at the next look,
  // and writes this line.
  template <typename SocketCall>
  void ExpectStopEnds(Call wait, SocketCall call, const std::string& line) {
    os::Event stop;
    m_socket.SetStopEvent(&stop);
    const LogReader log;
    const Faults faults;
    int waits = 0;
    std::uint32_t begin = 0;
    std::jthread stopper([&] {
      EXPECT_TRUE(faults.AwaitCalls(wait, 2));  // a look at the event came between
      begin = os::TickMs();
      stop.Set();
      waits = faults.Calls(wait);
    });
    EXPECT_TRUE(call());
    const std::uint32_t end = os::TickMs();
    stopper.join();
    EXPECT_LT(end - begin, 500U);
    EXPECT_LE(faults.Calls(wait), waits + 1);  // it may have been on the verge of one
    EXPECT_EQ(log.LinesOfThisThread(), Lines{line});
  }

  TestListener m_listener{"127.0.0.1", 0, 8};
  CCustomizeSocket m_socket;
  TestSocket m_peer;
  std::array<char, 100> m_buffer{};
};

TEST_F(CustomSocketTest, ConnectsByAddressAndSaysWhere) {
  const LogReader log;
  Connect();
  EXPECT_TRUE(m_socket.connected());
  EXPECT_EQ(m_socket.GetIp(), L"127.0.0.1");
  EXPECT_EQ(m_socket.ip(), AddressOf("127.0.0.1"));
  EXPECT_EQ(m_socket.port(), m_listener.port());
  EXPECT_EQ(log.LinesOfThisThread(), Lines{"[INFO] CCustomizeSocket Connect ip: 127.0.0.1"});
}

TEST_F(CustomSocketTest, ConnectsByName) {
  EXPECT_TRUE(m_socket.Connect(L"127.0.0.1", m_listener.port()));
  EXPECT_TRUE(m_listener.Accept(kPatienceMs).valid());
}

TEST_F(CustomSocketTest, NullNameIsRefused) {
  const LogReader log;
  EXPECT_FALSE(m_socket.Connect(nullptr, m_listener.port()));
  EXPECT_EQ(log.LinesOfThisThread(), Lines{"[WARN] CCustomizeSocket Connect 1"});
}

TEST_F(CustomSocketTest, UnknownNameLeavesAnOpenConnectionAlone) {
  Connect();
  const LogReader log;
  EXPECT_FALSE(m_socket.Connect(L"no-such-host.invalid", m_listener.port()));
  EXPECT_EQ(log.LinesOfThisThread(), Lines{"[WARN] CCustomizeSocket Connect 2"});
  EXPECT_TRUE(m_socket.connected());
  EXPECT_TRUE(m_socket.Send("x", 1));
}

TEST_F(CustomSocketTest, AddressThatCannotBeConnectedToFailsAtOnce) {
  const LogReader log;
  EXPECT_FALSE(m_socket.Connect(AddressOf("255.255.255.255"), 9));
  EXPECT_EQ(log.LinesOfThisThread(), Lines{"[WARN] CCustomizeSocket Connect 5: -1"});
  EXPECT_EQ(m_socket.ip(), 0U);
}

TEST_F(CustomSocketTest, NullNameResolvesToThisMachine) {
  EXPECT_NE(m_socket.ResolveHost(nullptr), 0U);
  EXPECT_EQ(m_socket.ResolveHost(L"127.0.3.9"), AddressOf("127.0.3.9"));
}

TEST_F(CustomSocketTest, SecondConnectClosesTheFirstConnection) {
  Connect();
  TestSocket first = std::move(m_peer);
  Connect();
  EXPECT_TRUE(first.WaitReadable(kPatienceMs));
  EXPECT_EQ(first.Receive(m_buffer.data(), m_buffer.size()), 0);
  EXPECT_TRUE(m_socket.Send("x", 1));
  EXPECT_TRUE(m_peer.WaitReadable(kPatienceMs));
}

TEST_F(CustomSocketTest, SendsTextWithItsTerminator) {
  Connect();
  EXPECT_TRUE(m_socket.Send(L"GET /\x00E4"));
  m_socket.Close();
  EXPECT_EQ(PeerReceivesAll(), std::string("GET /\xE4\0", 7));
}

TEST_F(CustomSocketTest, SendsTextUpToTheBoundAndNothingBeyond) {
  Connect();
  EXPECT_FALSE(m_socket.Send(std::wstring(CCustomizeSocket::kMaxText, L'a').c_str()));
  EXPECT_TRUE(m_socket.Send(std::wstring(CCustomizeSocket::kMaxText - 1, L'a').c_str()));
  m_socket.Close();
  EXPECT_EQ(PeerReceivesAll(),
            std::string(CCustomizeSocket::kMaxText - 1, 'a') + std::string(1, '\0'));
}

TEST_F(CustomSocketTest, NothingToSendIsSent) {
  EXPECT_TRUE(m_socket.Send("x", 0));
  EXPECT_TRUE(m_socket.Send("x", -1));
  EXPECT_TRUE(m_socket.Send(nullptr, 5));
}

TEST_F(CustomSocketTest, ClosedSocketDoesNotSend) {
  EXPECT_FALSE(m_socket.Send("x", 1));
  EXPECT_FALSE(m_socket.Send(L""));
}

TEST_F(CustomSocketTest, ReceivesWhatIsThere) {
  Connect();
  ASSERT_EQ(m_peer.Send("hello", 5), 5);
  ASSERT_EQ(m_socket.Receive(m_buffer.data(), 2), 2);
  ASSERT_EQ(m_socket.Receive(m_buffer.data() + 2, 50), 3);
  EXPECT_EQ(std::string(m_buffer.data(), 5), "hello");
}

TEST_F(CustomSocketTest, NegativeCapacityFailsWithoutALine) {
  Connect();
  const LogReader log;
  EXPECT_EQ(m_socket.Receive(m_buffer.data(), -1), -1);
  EXPECT_EQ(log.LinesOfThisThread(), Lines{});
}

TEST_F(CustomSocketTest, ClosedPeerIsSeenOnce) {
  Connect();
  m_peer.Close();
  const LogReader log;
  EXPECT_EQ(m_socket.Receive(m_buffer.data(), 10), 0);
  EXPECT_FALSE(m_socket.connected());
  EXPECT_EQ(m_socket.ip(), 0U);
  EXPECT_EQ(m_socket.Receive(m_buffer.data(), 10), -1);
  EXPECT_EQ(log.LinesOfThisThread(), (Lines{"[INFO] CCustomizeSocket Receive err 5",
                                            "[INFO] CCustomizeSocket Receive err 1"}));
}

// As a reset does, which Wine shows as an orderly end.
TEST_F(CustomSocketTest, ReceiveThatFailsLeavesTheConnectionToTheCaller) {
  Connect();
  ASSERT_EQ(m_peer.Send("x", 1), 1);
  Faults faults;
  faults.Fail(Call::kReceive);
  const LogReader log;
  EXPECT_EQ(m_socket.Receive(m_buffer.data(), 10), -1);
  EXPECT_EQ(log.LinesOfThisThread(), Lines{"[INFO] CCustomizeSocket Receive err 6"});
  EXPECT_TRUE(m_socket.connected());
  EXPECT_EQ(m_socket.ip(), AddressOf("127.0.0.1"));
}

TEST_F(CustomSocketTest, AddressIsTakenOnce) {
  Connect();
  EXPECT_EQ(m_socket.TakeIp(), AddressOf("127.0.0.1"));
  EXPECT_EQ(m_socket.TakeIp(), 0U);
  EXPECT_TRUE(m_socket.connected());
}

TEST_F(CustomSocketTest, StopEndsAReceive) {
  Connect();
  ExpectStopEnds(
      Call::kWaitReadable, [&] { return m_socket.Receive(m_buffer.data(), 10) == -1; },
      "[INFO] CCustomizeSocket Receive err 6");
}

TEST_F(CustomSocketTest, StopEndsAConnect) {
  const test::FullListener listener;
  ExpectStopEnds(
      Call::kWaitWritable,
      [&] { return !m_socket.Connect(AddressOf("127.0.0.1"), listener.port()); },
      "[WARN] CCustomizeSocket Connect 6");
}

TEST_F(CustomSocketTest, StopEndsASendThatFindsNoRoomWithoutALine) {
  Connect();
  os::Event stop;
  m_socket.SetStopEvent(&stop);
  const LogReader log;
  const Faults faults;
  std::atomic<int> before{0};  // waits before the send in progress
  // Of the stop: how long the system goes on taking a little now and then is its own affair.
  std::atomic<std::uint32_t> begin{0};
  std::atomic<int> calls_at_stop{0};
  std::jthread stopper([&](const std::stop_token& over) {
    // Until it has waited in vain for a slice. The
    // calls are read first: more of them than those before a later send cannot be meant.
    for (bool waiting = true; waiting && !over.stop_requested(); std::this_thread::yield()) {
      const int calls = faults.Calls(Call::kWaitWritable);
      waiting = calls < before + 2;
    }
    begin = os::TickMs();
    stop.Set();
    calls_at_stop = faults.Calls(Call::kWaitWritable);
  });
  const std::string piece(1000, 'x');
  bool sent = true;
  for (int count = 0; sent && count < 100'000; ++count) {
    before = faults.Calls(Call::kWaitWritable);
    sent = m_socket.Send(piece.data(), static_cast<std::int32_t>(piece.size()));
  }
  const std::uint32_t end = os::TickMs();
  stopper.request_stop();
  stopper.join();
  EXPECT_FALSE(sent);
  // One may have been about to begin.
  EXPECT_LE(faults.Calls(Call::kWaitWritable), calls_at_stop + 1);
  EXPECT_LT(end - begin, 15'000U);
  EXPECT_TRUE(m_socket.connected());
  EXPECT_EQ(log.LinesOfThisThread(), Lines{});
}

// Ten looks take half a second; on a machine that is away for a while, some other ten do.
TEST_F(CustomSocketTest, WaitLooksAtTheStopEventEveryFiftyMilliseconds) {
  constexpr int kLooks = 10;
  constexpr std::uint32_t kLeastMs = (kLooks - 1) * 50 - 20;  // less a tick of the clock
  constexpr std::uint32_t kMostMs = kLooks * 75;
  Connect();
  os::Event stop;
  m_socket.SetStopEvent(&stop);
  const Faults faults;
  const std::jthread receiver([&] {
    while (!stop.IsSet()) EXPECT_EQ(m_socket.Receive(m_buffer.data(), 10), -1);
  });
  EXPECT_TRUE(test::RepeatUntil([&] {
    const std::uint32_t begin = os::TickMs();
    EXPECT_TRUE(faults.AwaitMoreCalls(Call::kWaitReadable, kLooks));
    const std::uint32_t took = os::TickMs() - begin;
    return took >= kLeastMs && took < kMostMs;
  }));
  stop.Set();
}

TEST_F(CustomSocketTest, StopRefusesConnectAndSend) {
  Connect();
  os::Event stop;
  m_socket.SetStopEvent(&stop);
  stop.Set();
  const LogReader log;
  EXPECT_FALSE(m_socket.Send("x", 1));
  EXPECT_FALSE(m_socket.Connect(AddressOf("127.0.0.1"), m_listener.port()));
  EXPECT_EQ(m_socket.ResolveHost(L"127.0.0.1"), 0U);
  EXPECT_EQ(log.LinesOfThisThread(), Lines{"[WARN] CCustomizeSocket Connect 6"});
}

TEST_F(CustomSocketTest, DestructionClosesTheConnection) {
  std::optional<CCustomizeSocket> socket(std::in_place);
  ASSERT_TRUE(socket->Connect(AddressOf("127.0.0.1"), m_listener.port()));
  m_peer = m_listener.Accept(kPatienceMs);
  socket.reset();
  EXPECT_TRUE(m_peer.WaitReadable(kPatienceMs));
  EXPECT_EQ(m_peer.Receive(m_buffer.data(), m_buffer.size()), 0);
}

}  // namespace
}  // namespace Tarnlo
