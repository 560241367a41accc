// The trailer on the disk while workers run: it follows them, and never claims what was not
// flushed.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <numeric>
#include <optional>
#include <thread>
#include <vector>

#include "support/os/clock.h"
#include "support/os/file.h"
#include "tests/engine/job_fixture.h"
#include "tests/faults/faults.h"

namespace Tarnlo::test {
namespace {

constexpr std::int64_t kSize = 60'000;
constexpr std::int64_t kStalled = 10'000;  // the range that nobody answers for
constexpr std::uint32_t kDivisor = 5;      // a save every second
constexpr std::uint32_t kGraceMs = 300;    // in which what comes too soon would be seen

class SlowSaving : public JobTest {
 protected:
  SlowSaving() {
    m_faults.DivideWaits(kDivisor);
    m_faults.DivideIntervals(kDivisor);
  }
  ~SlowSaving() override { Pause(); }

  // Five ranges are written; the sixth is asked for again and again, and answered when its gate is
  // opened.
  void StartAndStall() {
    Serve("/f", Body(kSize)).ForPieces().Times(1).HoldingAnswer(m_sixth);
    Serve("/f", Body(kSize)).ForPieces().Times(5);
    Serve("/f", Body(kSize)).ForPieces().HoldingAnswer(m_sixth);
    Serve("/f", Body(kSize));
    ASSERT_TRUE(Start("/f"));
    ASSERT_TRUE(m_sixth.AwaitArrivals());
    ASSERT_TRUE(Observer().AwaitEachHas(5, kStalled));
  }
  // The same when the disk does not come back from the first flush.
  void StartAndStallWithASlowDisk() {
    m_faults.Hold(os::Call::kFlush);
    StartAndStall();
    ASSERT_TRUE(m_faults.AwaitCalls(os::Call::kFlush, 1));
  }
  // Nothing when there is no trailer.
  [[nodiscard]] std::optional<std::int64_t> MissingByTheTrailer() const {
    const Trailer trailer = ReadTrailer(Temporary(L"f"), kSize);
    if (trailer.count != 6) return std::nullopt;
    return trailer.MissingBytes();
  }

  Gate& m_sixth = NewGate();
  Faults m_faults;
};

TEST_F(SlowSaving, TrailerFollowsTheWorkersWhileTheyRun) {
  m_faults.DivideIntervals(1);
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

TEST_F(SlowSaving, WhatWasNotFlushedIsClaimedAtTheEndAlone) {
  m_faults.Fail(os::Call::kFlush, 1, 100);
  StartAndStall();
  ASSERT_TRUE(m_faults.AwaitCalls(os::Call::kFlush, 2));  // what the first said has been heeded
  EXPECT_EQ(MissingByTheTrailer(), std::nullopt);
  Pause();
  EXPECT_EQ(MissingByTheTrailer(), kStalled);
}

TEST_F(SlowSaving, TrailerClaimsWhatWasWrittenWhenItsFlushBegan) {
  Gate& fifth = NewGate();
  Serve("/f", Body(kSize)).ForPieces().Times(1).HoldingAnswer(fifth);
  Serve("/f", Body(kSize)).ForPieces().Times(4);
  Serve("/f", Body(kSize)).ForPieces().HoldingAnswer(m_sixth);
  Serve("/f", Body(kSize));
  m_faults.Hold(os::Call::kFlush);
  m_faults.DivideIntervals(0);  // no save is due before the four are there
  ASSERT_TRUE(Start("/f"));
  ASSERT_TRUE(Observer().AwaitEachHas(4, kStalled));
  m_faults.DivideIntervals(kDivisor);
  ASSERT_TRUE(m_faults.AwaitCalls(os::Call::kFlush, 1));
  fifth.Open();
  ASSERT_TRUE(Observer().AwaitEachHas(5, kStalled));
  EXPECT_EQ(MissingByTheTrailer(), std::nullopt);
  m_faults.LetThrough();
  ASSERT_TRUE(m_faults.AwaitCalls(os::Call::kFlush, 2));  // after what the first made possible
  EXPECT_EQ(MissingByTheTrailer(), 2 * kStalled);
  m_faults.LetThrough();
  ASSERT_TRUE(m_faults.AwaitCalls(os::Call::kFlush, 3));
  EXPECT_EQ(MissingByTheTrailer(), kStalled);
}

TEST_F(SlowSaving, PauseDoesNotWaitForASlowDiskAndTheNextRunDoes) {
  StartAndStallWithASlowDisk();
  StopPromptly();
  EXPECT_EQ(MissingByTheTrailer(), kStalled);
  m_sixth.Open();
  const int opened = m_faults.Calls(os::Call::kOpenFile);
  const std::size_t asked = Server().Requests().size();
  ASSERT_TRUE(Continue("/f"));
  ASSERT_TRUE(Observer().AwaitCount(kEventContentLength, 2));  // next it needs the file
  os::SleepMs(kGraceMs);
  EXPECT_EQ(m_faults.Calls(os::Call::kOpenFile), opened);
  m_faults.LetThrough(100);  // those of that run too
  EXPECT_EQ(AwaitResult(), kResultSuccess);
  EXPECT_EQ(FileDifference(Target(L"f"), Body(kSize)), "");
  const std::vector<Interval> ranges = RangesAskedFor(asked);
  EXPECT_EQ(std::accumulate(ranges.begin(), ranges.end(), std::int64_t{0},
                            [](std::int64_t sum, const Interval& range) {
                              return sum + range.end - range.begin;
                            }),
            kStalled);
}

// A host may open the file as it likes when it hears of it.
TEST_F(SlowSaving, EndIsToldWhenNobodyHasTheFileOpenAnyMore) {
  std::atomic<bool> let_through{false};
  Observer().OnEach([&](const TaskEvent& event) {
    if (event.type != kEventFinished) return;
    EXPECT_TRUE(let_through);
    EXPECT_TRUE(os::File::Open(Target(L"f"), os::FileAccess::kReadWrite, os::FileShare::kNone,
                               os::FileCreation::kOpenExisting)
                    .valid());
  });
  StartAndStallWithASlowDisk();
  m_sixth.Open();
  ASSERT_TRUE(Log().Await("CDownloadManager HandleDownloadFinished 2"));
  os::SleepMs(kGraceMs);
  let_through = true;
  m_faults.LetThrough();
  EXPECT_EQ(AwaitResult(), kResultSuccess);
}

TEST_F(SlowSaving, TrailerThatADiskTakesHalfOfGoes) {
  StartAndStall();
  Pause();
  EXPECT_EQ(MissingByTheTrailer(), kStalled);
  ASSERT_TRUE(Continue("/f"));
  ASSERT_TRUE(m_sixth.AwaitArrivals(2));
  m_faults.Fail(os::Call::kWriteWhole);
  Pause();
  EXPECT_EQ(SizeOf(Temporary(L"f")), kSize);
  m_sixth.Open();
  ASSERT_TRUE(Continue("/f"));
  EXPECT_EQ(AwaitResult(), kResultSuccess);
  EXPECT_EQ(FileDifference(Target(L"f"), Body(kSize)), "");
}

}  // namespace
}  // namespace Tarnlo::test
