#include "hosts/length_poll.h"

#include <gtest/gtest.h>

#include <vector>

#include "support/os/thread.h"
#include "tests/support/cdn.h"
#include "tests/support/gate.h"
#include "tests/support/repeat_until.h"
#include "tests/support/stopped_exchange.h"
#include "tests/support/test_socket.h"

namespace Tarnlo {
namespace {

using test::Body;
using Steps = std::vector<int>;

class LengthPollTest : public testing::Test {
 protected:
  void SetUp() override { ASSERT_TRUE(m_cdn.valid()); }

  LengthPoll PollOf(const std::wstring& path) {
    LengthPoll poll{{m_cdn.wide_name(), path, m_cdn.port()}, {}, false, 3};
    for (std::size_t i = 0; i < m_cdn.size(); ++i) poll.addresses.insert(m_cdn.address(i));
    return poll;
  }
  LengthVotes Ask(const LengthPoll& poll, const os::Event* stop = nullptr) {
    m_steps.clear();
    return PollLengths(poll, stop, [this](int step) { m_steps.push_back(step); });
  }
  // Until all that are expected have answered: an answer may miss the limits of 6 and 10 ms.
  LengthVotes AskUntil(const LengthPoll& poll, const Steps& steps) {
    LengthVotes votes;
    test::RepeatUntil([&] {
      votes = Ask(poll);
      return m_steps == steps;
    });
    return votes;
  }

  test::Cdn m_cdn{3};
  Steps m_steps;
};

TEST_F(LengthPollTest, EveryAddressVotesInAscendingOrder) {
  m_cdn[0].Serve("/f", Body(1000));
  m_cdn[1].Serve("/f", Body(999));
  m_cdn[2].Serve("/f", Body(1000));
  const LengthVotes votes = AskUntil(PollOf(L"/f"), {3, 4, 5, 3, 4, 5, 3, 4, 5});
  EXPECT_EQ(m_steps, (Steps{3, 4, 5, 3, 4, 5, 3, 4, 5}));
  EXPECT_EQ(votes,
            (LengthVotes{{999, {m_cdn.address(1)}}, {1000, {m_cdn.address(0), m_cdn.address(2)}}}));
}

TEST_F(LengthPollTest, RequestNamesTheHostAndGoesToTheAddress) {
  m_cdn[0].Serve("/dir/f", Body(5));
  LengthPoll poll = PollOf(L"/dir/f");
  poll.addresses = {m_cdn.address(0)};
  AskUntil(poll, {3, 4, 5});
  const auto requests = m_cdn[0].RequestsFor("/dir/f");
  ASSERT_FALSE(requests.empty());
  EXPECT_EQ(requests[0].method, "HEAD");
  EXPECT_EQ(requests[0].Header("Host"), m_cdn.name());
  EXPECT_TRUE(m_cdn[1].Requests().empty());
}

TEST_F(LengthPollTest, LengthZeroIsToldAndDoesNotVote) {
  m_cdn.ServeEverywhere("/f", test::FaultScript(Body(0)));
  EXPECT_TRUE(AskUntil(PollOf(L"/f"), {3, 4, 5, 3, 4, 5, 3, 4, 5}).empty());
  EXPECT_EQ(m_steps, (Steps{3, 4, 5, 3, 4, 5, 3, 4, 5}));
}

TEST_F(LengthPollTest, AddressThatRefusesHasNoLength) {
  m_cdn[0].Serve("/f", Body(8));
  m_cdn[2].Serve("/f", Body(8));
  m_cdn.Close(1);
  const LengthVotes votes = AskUntil(PollOf(L"/f"), {3, 4, 5, 3, 4, 3, 4, 5});
  EXPECT_EQ(m_steps, (Steps{3, 4, 5, 3, 4, 3, 4, 5}));
  EXPECT_EQ(votes, (LengthVotes{{8, {m_cdn.address(0), m_cdn.address(2)}}}));
}

TEST_F(LengthPollTest, AddressThatNeverAnswersIsGivenUp) {
  const test::Gate gate;
  m_cdn[0].Serve("/f", Body(8)).HoldingAnswer(gate);
  m_cdn[1].Serve("/f", Body(8));
  m_cdn[2].Serve("/f", Body(8)).HoldingAnswer(gate);
  const LengthVotes votes = AskUntil(PollOf(L"/f"), {3, 4, 3, 4, 5, 3, 4});
  EXPECT_EQ(m_steps, (Steps{3, 4, 3, 4, 5, 3, 4}));
  EXPECT_EQ(votes, (LengthVotes{{8, {m_cdn.address(1)}}}));
}

TEST_F(LengthPollTest, StopBeforeTheFirstAsksNobody) {
  os::Event stop;
  stop.Set();
  EXPECT_TRUE(Ask(PollOf(L"/f"), &stop).empty());
  EXPECT_TRUE(m_steps.empty());
}

TEST_F(LengthPollTest, StopDuringAnExchangeEndsThePoll) {
  m_cdn.ServeEverywhere("/f", test::FaultScript(Body(8)));
  EXPECT_TRUE(test::IsEndedInTheFirstExchange(
      [&](const os::Event& stop) { EXPECT_TRUE(Ask(PollOf(L"/f"), &stop).empty()); }));
  EXPECT_TRUE(m_steps.empty());
}

TEST_F(LengthPollTest, StepsAreToldOnTheCallingThread) {
  m_cdn.ServeEverywhere("/f", test::FaultScript(Body(8)));
  const std::uint32_t self = os::CurrentThreadId();
  EXPECT_TRUE(test::RepeatUntil([&] {
    int told = 0;
    PollLengths(PollOf(L"/f"), nullptr, [&](int) {
      ++told;
      EXPECT_EQ(os::CurrentThreadId(), self);
    });
    return told == 9;
  }));
}

// The system asks 2.0.0.1 before 1.0.0.10: the last octet weighs most.
TEST(AddressOrderTest, LastOctetDecidesFirst) {
  EXPECT_LT(test::AddressOf("2.0.0.1"), test::AddressOf("1.0.0.10"));
  EXPECT_LT(test::AddressOf("10.0.0.1"), test::AddressOf("10.0.0.2"));
  EXPECT_LT(test::AddressOf("127.0.0.1"), test::AddressOf("1.1.0.1"));
}

}  // namespace
}  // namespace Tarnlo
