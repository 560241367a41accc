// The trailer on the disk while workers run: it follows them, and never claims what was not
// flushed.
#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <optional>
#include <thread>

#include "tests/engine/job_fixture.h"
#include "tests/faults/faults.h"

namespace Tarnlo::test {
namespace {

constexpr std::int64_t kSize = 60'000;
constexpr std::int64_t kStalled = 10'000;  // the range that nobody answers for

class SlowSaving : public JobTest {
 protected:
  ~SlowSaving() override { Pause(); }

  // Five ranges are written; the sixth is asked for again and again, and never answered.
  void StartAndStall() {
    Gate& gate = NewGate();
    Serve("/f", Body(kSize)).ForPieces().Times(1).HoldingAnswer(gate);
    Serve("/f", Body(kSize)).ForPieces().Times(5);
    Serve("/f", Body(kSize)).ForPieces().HoldingAnswer(gate);
    Serve("/f", Body(kSize));
    ASSERT_TRUE(Start("/f"));
    ASSERT_TRUE(gate.AwaitArrivals());
  }
  // Nothing when there is no trailer.
  [[nodiscard]] std::optional<std::int64_t> MissingByTheTrailer() const {
    const Trailer trailer = ReadTrailer(Temporary(L"f"), kSize);
    if (trailer.count != 6) return std::nullopt;
    return trailer.MissingBytes();
  }

  Faults m_faults;
};

TEST_F(SlowSaving, TrailerFollowsTheWorkersWhileTheyRun) {
  StartAndStall();
  const auto end = std::chrono::steady_clock::now() + std::chrono::minutes(1);
  while (MissingByTheTrailer() != kStalled && std::chrono::steady_clock::now() < end) {
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  EXPECT_EQ(MissingByTheTrailer(), kStalled);
  EXPECT_EQ(Log().Count("CDownloadManager HandleDownloadFinished 1"), 0);  // the attempt lasts
  EXPECT_GE(m_faults.Calls(os::Call::kFlush), 1);
  for (const Interval& gap : ReadTrailer(Temporary(L"f"), kSize).Missing()) {
    EXPECT_EQ(FileDifference(Temporary(L"f"), Body(kSize), 0, gap.begin), "");
    EXPECT_EQ(FileDifference(Temporary(L"f"), Body(kSize), gap.end, kSize), "");
  }
}

TEST_F(SlowSaving, WhatWasNotFlushedIsNotClaimed) {
  m_faults.Fail(os::Call::kFlush, 1, 100);
  StartAndStall();
  ASSERT_TRUE(m_faults.AwaitCalls(os::Call::kFlush, 2));  // what the first said has been heeded
  EXPECT_EQ(MissingByTheTrailer(), std::nullopt);
  Pause();
  EXPECT_EQ(MissingByTheTrailer(), std::nullopt);
}

}  // namespace
}  // namespace Tarnlo::test
