// Stopping all workers of a table.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <memory>

#include "support/os/clock.h"
#include "tests/engine/table_fixture.h"

namespace Tarnlo::test {
namespace {

constexpr std::int64_t kRange = 1'000;
constexpr std::int64_t kBegun = 100;  // of each
constexpr unsigned kOthers = 0b110;

class TableStop : public TableTest {};

// The first ends, once stopped, when the two others have come to their end: it never would if they
// were told to stop only after it.
TEST_F(TableStop, TellsEverybodyBeforeItWaitsForTheFirst) {
  Gate& gate = NewGate();
  Server().Serve("/f", Body(kRange * 3)).StallingAfter(kBegun, gate);
  const auto ended = std::make_shared<std::atomic<unsigned>>(0U);  // a bit for each
  OnFailedAttempt([ended](std::int32_t index) {
    if (index != 0) {
      *ended |= 1U << index;
      return;
    }
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (*ended != kOthers && std::chrono::steady_clock::now() < end) os::SleepMs(1);
  });
  Start({{"/f", {0, kRange, 0}}, {"/f", {kRange, kRange, 0}}, {"/f", {2 * kRange, kRange, 0}}});
  AwaitRemaining(3 * (kRange - kBegun));
  Table().Stop();
  EXPECT_EQ(*ended, kOthers);
}

}  // namespace
}  // namespace Tarnlo::test
