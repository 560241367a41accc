#include "transfer/range_state.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <random>
#include <thread>

namespace Tarnlo {
namespace {

TEST(RangeStateTest, AssignedRangeHasEverythingButTheReceivedLeft) {
  RangeState range;
  range.Assign(100, 1000, 300);
  EXPECT_EQ(range.start(), 100);
  EXPECT_EQ(range.length(), 1000);
  EXPECT_EQ(range.received(), 300);
  EXPECT_EQ(range.buffered(), 0);
  EXPECT_EQ(range.Remaining(), 700);
}

TEST(RangeStateTest, ClaimIsCutAtTheEnd) {
  RangeState range;
  range.Assign(0, 1000, 0);
  EXPECT_EQ(range.Claim(0, 400), 400);
  EXPECT_EQ(range.Claim(600, 400), 400);
  EXPECT_EQ(range.Claim(601, 400), 399);
  EXPECT_EQ(range.Claim(999, 400), 1);
  EXPECT_EQ(range.Claim(1000, 400), 0);
  EXPECT_EQ(range.Claim(1001, 400), 0);
}

TEST(RangeStateTest, ClaimOfAnOpenRangeIsAllThatIsWanted) {
  RangeState range;
  range.Assign(0, kOpenEnd, 0);
  EXPECT_EQ(range.Claim(5'000'000'000, 400), 400);
}

TEST(RangeStateTest, CutBelowTheClaimIsRefused) {
  RangeState range;
  range.Assign(0, 1000, 0);
  ASSERT_EQ(range.Claim(100, 400), 400);
  EXPECT_FALSE(range.TryCut(499));
  EXPECT_EQ(range.length(), 1000);
  EXPECT_TRUE(range.TryCut(500));
  EXPECT_EQ(range.length(), 500);
  EXPECT_EQ(range.Claim(500, 400), 0);
}

TEST(RangeStateTest, CutMayNotLengthen) {
  RangeState range;
  range.Assign(0, 1000, 0);
  EXPECT_FALSE(range.TryCut(1001));
  EXPECT_TRUE(range.TryCut(1000));
}

TEST(RangeStateTest, OpenRangeIsNotCut) {
  RangeState range;
  range.Assign(0, kOpenEnd, 0);
  EXPECT_FALSE(range.TryCut(10));
  EXPECT_EQ(range.length(), kOpenEnd);
}

TEST(RangeStateTest, CutLeavesWhatIsReceivedAndAtLeastAByte) {
  RangeState range;
  range.Assign(0, 1000, 300);
  EXPECT_FALSE(range.TryCut(299));
  EXPECT_TRUE(range.TryCut(300));
  range.Assign(0, 1000, 0);
  EXPECT_FALSE(range.TryCut(-1));
  EXPECT_FALSE(range.TryCut(0));
  EXPECT_TRUE(range.TryCut(1));
  EXPECT_EQ(range.Remaining(), 1);
}

TEST(RangeStateTest, UnclaimGivesTheRoomBack) {
  RangeState range;
  range.Assign(0, 1000, 0);
  ASSERT_EQ(range.Claim(0, 1000), 1000);
  range.Unclaim(10);
  EXPECT_FALSE(range.TryCut(9));
  EXPECT_TRUE(range.TryCut(10));
}

TEST(RangeStateTest, FlushMovesBytesFromBufferedToReceived) {
  RangeState range;
  range.Assign(0, 1000, 0);
  range.SetBuffered(600);
  EXPECT_EQ(range.Remaining(), 400);
  EXPECT_EQ(range.AddReceived(500), 500);
  EXPECT_EQ(range.buffered(), 100);
  EXPECT_EQ(range.Remaining(), 400);
  range.SetBuffered(0);
  EXPECT_EQ(range.Remaining(), 500);
}

TEST(RangeStateTest, BytesThatWereNeverBufferedCountAsReceived) {
  RangeState range;
  range.Assign(0, 1000, 10);
  EXPECT_EQ(range.AddReceived(20), 30);
  EXPECT_EQ(range.buffered(), 0);
}

TEST(RangeStateTest, StartOverForgetsWhatWasReceivedAndClaimed) {
  RangeState range;
  range.Assign(50, 1000, 900);
  range.StartOver();
  EXPECT_EQ(range.start(), 50);
  EXPECT_EQ(range.length(), 1000);
  EXPECT_EQ(range.received(), 0);
  EXPECT_TRUE(range.TryCut(1));
}

// A worker that flushes and one that reads: the sum never falls and never runs ahead.
TEST(RangeStateTest, SumOfReceivedAndBufferedNeverGoesBackWhileBytesAreFlushed) {
  constexpr std::int64_t kLength = 4'000'000;
  RangeState range;
  range.Assign(0, kLength, 0);
  std::atomic<bool> wrong{false};
  std::atomic<bool> done{false};
  std::thread reader([&] {
    std::int64_t last = kLength;
    for (bool over = false; last > 0 && !over;) {
      over = done;  // and one more look
      const std::int64_t left = range.Remaining();
      if (left > last || left < 0) wrong = true;
      last = left;
    }
  });
  std::int64_t buffered = 0;
  for (std::int64_t position = 0; position < kLength; position += 10) {
    buffered += 10;
    range.SetBuffered(buffered);
    if (buffered < 100) continue;
    range.AddReceived(buffered);
    buffered = 0;
  }
  done = true;
  reader.join();
  EXPECT_FALSE(wrong);
  EXPECT_EQ(range.Remaining(), 0);
}

// Whoever comes first: what was claimed lies below the length, at every moment.
TEST(RangeStateTest, NoCutEverPassesAClaim) {
  constexpr std::int64_t kLength = 3'000'000;
  RangeState range;
  range.Assign(0, kLength, 0);
  std::atomic<bool> done{false};
  std::atomic<int> accepted{0};
  std::thread cutter([&] {
    std::mt19937 random(7);
    while (!done) {
      const std::int64_t length = range.length();
      if (range.TryCut(length - 1 - static_cast<std::int64_t>(random() % 200))) ++accepted;
    }
  });
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
  std::int64_t position = 0;
  bool passed = false;
  while (const std::int64_t room = range.Claim(position, 100)) {
    // Between the claim and the bytes' arrival the length may change, but not below them.
    if (position + room > range.length()) passed = true;
    position += room;
    // Not to the end before there was a cut to pass, if there ever is one.
    while (position > 1'000'000 && accepted == 0 && std::chrono::steady_clock::now() < deadline) {
      std::this_thread::yield();
    }
  }
  done = true;
  cutter.join();
  EXPECT_FALSE(passed);
  EXPECT_EQ(position, range.length());
  EXPECT_GT(accepted, 0);
}

}  // namespace
}  // namespace Tarnlo
