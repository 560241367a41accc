#include "hosts/majority_vote.h"

#include <gtest/gtest.h>

#include <ostream>
#include <string>

namespace Tarnlo {
namespace {

struct VoteCase {
  std::string name;
  LengthVotes votes;
  std::uint32_t length;
  std::vector<os::Ipv4Address> addresses;
  int leader_changes;
  friend void PrintTo(const VoteCase& vote, std::ostream* out) { *out << vote.name; }
};

class MajorityVoteTest : public testing::TestWithParam<VoteCase> {};

TEST_P(MajorityVoteTest, Table) {
  const Majority majority = FindMajority(GetParam().votes);
  EXPECT_EQ(majority.length, GetParam().length);
  EXPECT_EQ(majority.addresses, GetParam().addresses);
  EXPECT_EQ(majority.leader_changes, GetParam().leader_changes);
}

INSTANTIATE_TEST_SUITE_P(
    Votes, MajorityVoteTest,
    testing::Values(
        VoteCase{"NobodyVotes", {}, 0, {}, 0},
        VoteCase{"OneAddressWinsAlone", {{1000, {7}}}, 1000, {7}, 1},
        VoteCase{"AllAgree", {{1000, {7, 8, 9}}}, 1000, {7, 8, 9}, 1},
        VoteCase{
            "MoreAddressesWinOverSmallerLength", {{999, {3}}, {1000, {1, 2}}}, 1000, {1, 2}, 2},
        VoteCase{"MoreAddressesWinOverLargerLength", {{999, {1, 2}}, {1000, {3}}}, 999, {1, 2}, 1},
        VoteCase{"TieKeepsTheSmallerLength", {{500, {2}}, {700, {1}}}, 500, {2}, 1},
        VoteCase{
            "TieOfLargerGroupsKeepsTheSmaller", {{1, {9}}, {2, {5, 6}}, {3, {1, 2}}}, 2, {5, 6}, 2},
        VoteCase{"LeaderChangesWithEveryLargerGroup",
                 {{1, {1}}, {2, {2, 3}}, {3, {4, 5, 6}}},
                 3,
                 {4, 5, 6},
                 3},
        VoteCase{"LengthZeroIsNoVote", {{0, {1, 2, 3}}, {5, {4}}}, 5, {4}, 1},
        VoteCase{"OnlyLengthZeroIsNobody", {{0, {1, 2, 3}}}, 0, {}, 0},
        VoteCase{"EmptyGroupDoesNotLead", {{5, {}}, {6, {1}}}, 6, {1}, 1},
        VoteCase{"LargestLengthCounts", {{0xFFFFFFFF, {1}}}, 0xFFFFFFFF, {1}, 1}),
    [](const auto& vote) { return vote.param.name; });

}  // namespace
}  // namespace Tarnlo
