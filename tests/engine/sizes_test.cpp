// Files of the lengths at which arithmetic goes wrong, over six connections and over one.
#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <deque>
#include <string>

#include "tests/engine/job_fixture.h"

namespace Tarnlo::test {
namespace {

// Around the count of connections, a receive, the least range that is shared, and a flush.
constexpr std::array<std::int64_t, 20> kLengths = {
    1,       5,       6,       7,       10,      20'479,  20'480,  20'481,    102'399,   102'400,
    102'401, 614'400, 368'639, 368'640, 368'641, 614'399, 614'401, 2'211'834, 2'211'840, 2'211'846};

class SizesTest : public testing::TestWithParam<bool> {
 protected:
  static void Serve(TestJob& job, std::int64_t length) {
    FaultScript& script = job.Serve("/f", Body(length));
    if (!GetParam()) script.IgnoringRanges();
  }

  static void ExpectComplete(TestJob& job, std::int64_t length) {
    SCOPED_TRACE(std::to_string(length) + " bytes");
    EXPECT_EQ(job.AwaitResult(), kResultSuccess);
    job.AwaitRunEnd();
    job.ExpectOneCleanAttempt();
    EXPECT_EQ(FileDifference(job.Target(L"f"), Body(length)), "");
    EXPECT_EQ(job.Files(), std::vector<std::wstring>{L"f"});
    const std::string lines = job.JobLines();
    EXPECT_NE(lines.find(GetParam() ? " A11x6 S22" : " A10 A11 S22"), std::string::npos) << lines;
  }
};

TEST_P(SizesTest, EveryLengthIsCompleteAndCorrectInOneAttempt) {
  // Four at a time: most of a small job is waiting.
  std::deque<TestJob> running;
  std::size_t checked = 0;
  for (const std::int64_t length : kLengths) {
    TestJob& job = running.emplace_back();
    Serve(job, length);
    ASSERT_TRUE(job.Start("/f"));
    if (running.size() < 4) continue;
    ExpectComplete(running.front(), kLengths.at(checked++));
    running.pop_front();
  }
  for (; !running.empty(); running.pop_front()) {
    ExpectComplete(running.front(), kLengths.at(checked++));
  }
  EXPECT_EQ(checked, kLengths.size());
}

INSTANTIATE_TEST_SUITE_P(Ranges, SizesTest, testing::Bool(),
                         [](const auto& test) { return test.param ? "Honoured" : "Ignored"; });

}  // namespace
}  // namespace Tarnlo::test
