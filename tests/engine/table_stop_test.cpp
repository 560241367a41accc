// Stopping all workers of a table.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>

#include "support/os/clock.h"
#include "tests/engine/table_fixture.h"

namespace Tarnlo::test {
namespace {

constexpr std::int64_t kRange = 1'000;
constexpr int kOthers = 2;

class TableStop : public TableTest {};

// The first ends, once stopped, when the two others have come to their end: it never would if they
// were told to stop only after it.
TEST_F(TableStop, TellsEverybodyBeforeItWaitsForTheFirst) {
  Gate& gate = NewGate();
  Server().Serve("/f", Body(kRange * 3)).StallingAfter(100, gate);
  std::atomic<int> ended{0};
  OnFailedAttempt([&ended](std::int32_t index) {
    if (index != 0) {
      ++ended;
      return;
    }
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (ended < kOthers && std::chrono::steady_clock::now() < end) os::SleepMs(1);
  });
  Start({{"/f", {0, kRange, 0}}, {"/f", {kRange, kRange, 0}}, {"/f", {2 * kRange, kRange, 0}}});
  ASSERT_TRUE(gate.AwaitArrivals(1 + kOthers));
  Table().Stop();
  EXPECT_EQ(ended, kOthers);
}

}  // namespace
}  // namespace Tarnlo::test
