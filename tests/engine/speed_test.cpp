#include "engine/speed.h"

#include <gtest/gtest.h>

#include <limits>

namespace Tarnlo {
namespace {

TEST(SpeedTest, NothingIsSaidWithinTheFirstMillisecond) {
  EXPECT_EQ(BytesPerSecond(1'000'000, 0), 0u);
}

TEST(SpeedTest, IsBytesPerWholeMillisecondTimesThousand) {
  EXPECT_EQ(BytesPerSecond(0, 1), 0u);
  EXPECT_EQ(BytesPerSecond(1, 1), 1'000u);
  EXPECT_EQ(BytesPerSecond(999, 1'000), 0u);
  EXPECT_EQ(BytesPerSecond(1'000, 1'000), 1'000u);
  EXPECT_EQ(BytesPerSecond(1'999, 1'000), 1'000u);
  EXPECT_EQ(BytesPerSecond(2'000, 1'000), 2'000u);
}

TEST(SpeedTest, StaysWithinItsType) {
  EXPECT_EQ(BytesPerSecond(-5, 1), 0u);
  EXPECT_EQ(BytesPerSecond(std::numeric_limits<std::int64_t>::max(), 1), 4'294'967'000u);
}

}  // namespace
}  // namespace Tarnlo
