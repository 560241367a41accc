#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <string>
#include <vector>

#include "support/os/head_client.h"
#include "support/os/net.h"
#include "tests/support/test_socket.h"

namespace Tarnlo::os {
namespace {

constexpr std::uint32_t kLong = 30'000;

class OsNetTest : public testing::Test {
 protected:
  void SetUp() override { ASSERT_TRUE(StartNetwork()); }
  void TearDown() override { StopNetwork(); }

  Socket Connected() {
    Socket socket = Socket::OpenTcp();
    EXPECT_EQ(socket.StartConnect(m_address, m_listener.port()), Socket::ConnectState::kDone);
    return socket;
  }

  const Ipv4Address m_address = test::AddressOf("127.0.0.1");
  test::TestListener m_listener{"127.0.0.1", 0, 5};
};

TEST_F(OsNetTest, DottedTextHasTheFirstOctetLowestInMemory) {
  const std::array<unsigned char, 4> octets = {10, 20, 30, 40};
  Ipv4Address address = 0;
  std::memcpy(&address, octets.data(), sizeof(address));
  EXPECT_EQ(DottedText(address), "10.20.30.40");
  EXPECT_EQ(DottedText(0), "0.0.0.0");
  EXPECT_EQ(DottedText(0xFFFFFFFF), "255.255.255.255");
}

TEST_F(OsNetTest, NamesAndNumbersAreResolved) {
  EXPECT_EQ(ResolveName("127.0.0.1"), (std::vector<Ipv4Address>{m_address}));
  const auto addresses = ResolveName("localhost");
  ASSERT_FALSE(addresses.empty());
  EXPECT_EQ(addresses.front(), m_address);
  EXPECT_FALSE(ResolveName(nullptr).empty());
}

TEST_F(OsNetTest, NameThatNobodyHasGivesNothing) {
  EXPECT_TRUE(ResolveName("no-such-host.invalid").empty());
  EXPECT_TRUE(ResolveName("not a name").empty());
}

TEST_F(OsNetTest, BytesGoBothWays) {
  Socket socket = Connected();
  test::TestSocket peer = m_listener.Accept(kLong);
  ASSERT_TRUE(peer.valid());
  EXPECT_EQ(socket.WaitWritable(kLong), Readiness::kReady);
  EXPECT_EQ(socket.Send("hello", 5), 5);
  std::array<char, 16> bytes{};
  ASSERT_TRUE(peer.WaitReadable(kLong));
  EXPECT_EQ(peer.Receive(bytes.data(), bytes.size()), 5);
  EXPECT_EQ(std::string(bytes.data()), "hello");
  EXPECT_EQ(peer.Send("answer", 6), 6);
  EXPECT_EQ(socket.WaitReadable(kLong), Readiness::kReady);
  EXPECT_EQ(socket.Receive(bytes.data(), 16), 6);
  EXPECT_EQ(std::string(bytes.data()), "answer");
}

TEST_F(OsNetTest, SilentPeerTimesOut) {
  const Socket socket = Connected();
  EXPECT_EQ(socket.WaitReadable(20), Readiness::kTimedOut);
}

TEST_F(OsNetTest, PeerThatClosesIsReadAsZero) {
  Socket socket = Connected();
  test::TestSocket peer = m_listener.Accept(kLong);
  peer.Close();
  char byte = 0;
  EXPECT_EQ(socket.WaitReadable(kLong), Readiness::kReady);
  EXPECT_EQ(socket.Receive(&byte, 1), 0);
}

TEST_F(OsNetTest, PeerThatResetsEndsTheWaitAndGivesNoByte) {
  Socket socket = Connected();
  test::TestSocket peer = m_listener.Accept(kLong);
  peer.Reset();
  char byte = 0;
  EXPECT_EQ(socket.WaitReadable(kLong), Readiness::kReady);
  EXPECT_LE(socket.Receive(&byte, 1), 0);  // a failure, or an end where a reset looks like one
}

TEST_F(OsNetTest, ConnectThatDoesNotBlockIsPendingAndThenWritable) {
  Socket socket = Socket::OpenTcp();
  ASSERT_TRUE(socket.SetBlocking(false));
  EXPECT_EQ(socket.StartConnect(m_address, m_listener.port()), Socket::ConnectState::kPending);
  EXPECT_EQ(socket.WaitWritable(kLong), Readiness::kReady);
  EXPECT_TRUE(socket.SetBlocking(true));
  EXPECT_TRUE(m_listener.Accept(kLong).valid());
}

TEST_F(OsNetTest, ReceiveThatDoesNotBlockFailsWhereNothingCame) {
  Socket socket = Connected();
  ASSERT_TRUE(socket.SetBlocking(false));
  char byte = 0;
  EXPECT_EQ(socket.Receive(&byte, 1), -1);
}

TEST_F(OsNetTest, BlockingConnectToARefusedPortFails) {
  const std::uint16_t port = test::TestListener("127.0.0.1", 0, 1).port();
  Socket socket = Socket::OpenTcp();
  EXPECT_EQ(socket.StartConnect(m_address, port), Socket::ConnectState::kFailed);
}

TEST_F(OsNetTest, ClosedSocketFailsEveryCall) {
  Socket socket = Connected();
  socket.Close();
  EXPECT_FALSE(socket.valid());
  char byte = 0;
  EXPECT_FALSE(socket.SetBlocking(false));
  EXPECT_EQ(socket.StartConnect(m_address, m_listener.port()), Socket::ConnectState::kFailed);
  EXPECT_EQ(socket.WaitReadable(kLong), Readiness::kError);
  EXPECT_EQ(socket.WaitWritable(kLong), Readiness::kError);
  EXPECT_EQ(socket.Send(&byte, 1), -1);
  EXPECT_EQ(socket.Receive(&byte, 1), -1);
}

TEST_F(OsNetTest, ClosingEndsTheConnection) {
  Socket socket = Connected();
  test::TestSocket peer = m_listener.Accept(kLong);
  socket.Close();
  char byte = 0;
  ASSERT_TRUE(peer.WaitReadable(kLong));
  EXPECT_EQ(peer.Receive(&byte, 1), 0);
}

}  // namespace
}  // namespace Tarnlo::os
