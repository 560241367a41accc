#include "engine/range_planner.h"

#include <gtest/gtest.h>

#include <limits>
#include <ostream>

#include "transfer/range_state.h"

namespace Tarnlo {

void PrintTo(const RangeRecord& record, std::ostream* out) {
  *out << "(" << record.start << ", " << record.length << ", " << record.done << ")";
}

namespace {

using Ranges = std::vector<RangeRecord>;

TEST(PlanRangesTest, FirstRangeTakesTheRemainder) {
  EXPECT_EQ(PlanRanges(10, 6),
            (Ranges{{0, 5, 0}, {5, 1, 0}, {6, 1, 0}, {7, 1, 0}, {8, 1, 0}, {9, 1, 0}}));
  EXPECT_EQ(PlanRanges(12, 6),
            (Ranges{{0, 2, 0}, {2, 2, 0}, {4, 2, 0}, {6, 2, 0}, {8, 2, 0}, {10, 2, 0}}));
  EXPECT_EQ(PlanRanges(7, 2), (Ranges{{0, 4, 0}, {4, 3, 0}}));
}

TEST(PlanRangesTest, FewerBytesThanConnectionsLeaveEmptyRanges) {
  EXPECT_EQ(PlanRanges(1, 3), (Ranges{{0, 1, 0}, {1, 0, 0}, {1, 0, 0}}));
  EXPECT_EQ(PlanRanges(5, 6),
            (Ranges{{0, 5, 0}, {5, 0, 0}, {5, 0, 0}, {5, 0, 0}, {5, 0, 0}, {5, 0, 0}}));
}

TEST(PlanRangesTest, OneConnectionTakesAll) {
  EXPECT_EQ(PlanRanges(1000, 1), (Ranges{{0, 1000, 0}}));
}

TEST(PlanRangesTest, UnknownLengthIsOneOpenRange) {
  for (const std::int64_t length : {std::int64_t{-1}, std::int64_t{0}}) {
    EXPECT_EQ(PlanRanges(length, 1), (Ranges{{0, kOpenEnd, 0}}));
    EXPECT_EQ(PlanRanges(length, 6), (Ranges{{0, kOpenEnd, 0}}));
  }
}

TEST(PlanRangesTest, RangesAdjoinAndCoverEveryLength) {
  std::vector<std::int64_t> lengths = {20'479,
                                       20'480,
                                       20'481,
                                       102'399,
                                       102'400,
                                       102'401,
                                       614'400,
                                       4'294'967'295,
                                       4'294'967'296,
                                       4'294'967'306,
                                       6 * 368'639LL,
                                       6 * 368'641LL,
                                       std::numeric_limits<std::int64_t>::max()};
  for (std::int64_t length = 1; length <= 300; ++length) lengths.push_back(length);
  for (const std::int64_t length : lengths) {
    for (std::size_t count = 1; count <= 63; ++count) {
      const Ranges ranges = PlanRanges(length, count);
      ASSERT_EQ(ranges.size(), count);
      std::int64_t offset = 0;
      for (const RangeRecord& range : ranges) {
        ASSERT_EQ(range.start, offset);
        ASSERT_GE(range.length, 0);
        ASSERT_EQ(range.done, 0);
        offset += range.length;
      }
      ASSERT_EQ(offset, length) << count;
    }
  }
}

TEST(GiveAwayTest, Table) {
  EXPECT_EQ(GiveAway(102'399, true), std::nullopt);
  EXPECT_EQ(GiveAway(102'400, true), 51'200);
  EXPECT_EQ(GiveAway(102'401, true), 51'200);
  EXPECT_EQ(GiveAway(102'399, false), 102'399);
  EXPECT_EQ(GiveAway(1, false), 1);
  EXPECT_EQ(GiveAway(1, true), std::nullopt);
  EXPECT_EQ(GiveAway(0, true), std::nullopt);
  EXPECT_EQ(GiveAway(0, false), std::nullopt);
  EXPECT_EQ(GiveAway(-1, true), std::nullopt);
  EXPECT_EQ(GiveAway(-1, false), std::nullopt);
  EXPECT_EQ(GiveAway(std::numeric_limits<std::int64_t>::max(), true),
            std::numeric_limits<std::int64_t>::max() / 2);
}

}  // namespace
}  // namespace Tarnlo
