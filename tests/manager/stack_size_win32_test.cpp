// What the library's threads have for host code and their own buffers. Under Wine alone: a
// sanitizer needs other stacks.
#include <gtest/gtest.h>
#include <windows.h>

#include <atomic>
#include <cstdint>
#include <cstdlib>

#include "tests/manager/manager_fixture.h"

namespace Tarnlo {
namespace {

constexpr std::int64_t kMiB = 1024 * 1024;
constexpr std::int64_t kRounding = 64 * 1024;

std::int64_t StackOfThisThread() {
  ULONG_PTR low = 0;
  ULONG_PTR high = 0;
  GetCurrentThreadStackLimits(&low, &high);
  return static_cast<std::int64_t>(high - low);
}

class StackSizeTest : public test::ManagerTest {};

TEST_F(StackSizeTest, JobHasTenMiBAndAWorkerEight) {
  constexpr std::int32_t kRangeProgress = 1;
  std::atomic<std::int64_t> of_job{0};
  std::atomic<std::int64_t> of_worker{0};
  m_callback.on_start = [&](std::int32_t) { of_job = StackOfThisThread(); };
  m_callback.on_stage = [&](std::int32_t, std::int32_t, std::int32_t stage) {
    if (stage == kRangeProgress) of_worker = StackOfThisThread();
  };
  ASSERT_EQ(Add(7, "/f"), 7);
  ASSERT_TRUE(m_callback.Await("OnTaskComplete 7"));
  EXPECT_LE(std::abs(of_job - 10 * kMiB), kRounding);
  EXPECT_LE(std::abs(of_worker - 8 * kMiB), kRounding);
}

}  // namespace
}  // namespace Tarnlo
