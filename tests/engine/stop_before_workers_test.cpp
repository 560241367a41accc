// A stop while the job waits for the system to let it judge the files that are there: they stay as
// they are, and no worker is started.
#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <string>

#include "engine/pending_flush.h"
#include "tests/engine/job_fixture.h"
#include "tests/faults/faults.h"

namespace Tarnlo::test {
namespace {

using os::Call;

constexpr std::uint32_t kSettleMs = 100;
constexpr std::uint32_t kPatienceMs = 30'000;

class StopBeforeWorkersTest : public JobTest {
 protected:
  StopBeforeWorkersTest() {
    // What the host table learns once.
    Serve("/other", Body(10));
    EXPECT_EQ(Download("/other"), kResultSuccess);
    RenewJob();
    m_faults.emplace();
  }

  std::optional<Faults> m_faults;
};

// An earlier run's flush has the temporary file open.
TEST_F(StopBeforeWorkersTest, WhileAFlushIsAwaitedThePartialFileStays) {
  Serve("/f", Body(10'000));
  WriteFileBytes(Temporary(L"f"), "an earlier run's");
  m_faults->Hold(Call::kFlush);
  const std::shared_ptr<PendingFlush> flush = PendingFlush::Begin(Temporary(L"f"));
  ASSERT_TRUE(m_faults->AwaitCalls(Call::kFlush, 1));
  m_faults->WatchWaits(kSettleMs, 0);
  const int waits = m_faults->Calls(Call::kWait);
  ASSERT_TRUE(Start("/f"));
  ASSERT_TRUE(m_faults->AwaitWaits(1));
  ASSERT_TRUE(m_faults->AwaitCalls(Call::kWait, waits + 1));
  Pause();
  EXPECT_EQ(JobLines(), "T1 T3 T4 T5 T6 S1 S3 T7 T8 T10 F1 F16 T19 T22 T23 T2");
  m_faults.reset();
  ASSERT_TRUE(flush->done().Wait(kPatienceMs));
  EXPECT_EQ(ReadFileBytes(Temporary(L"f")), "an earlier run's");
}

TEST_F(StopBeforeWorkersTest, WhileTheServerIsAskedAboutTheTargetNothingIsBegun) {
  Serve("/f", Body(10'000));
  WriteFileBytes(Target(L"f"), "another length");
  m_faults->Hold(Call::kResolve);
  ASSERT_TRUE(Start("/f"));
  ASSERT_TRUE(m_faults->AwaitCalls(Call::kResolve, 1));
  Pause();
  EXPECT_EQ(JobLines(), "T1 T3 T4 T5 T6 S1 S5 S6 G1 C0, =? 14 T7 T8 T10 F1 F16 T19 T22 T23 T2");
  EXPECT_EQ(ReadFileBytes(Target(L"f")), "another length");
  EXPECT_FALSE(Has(Temporary(L"f")));
  EXPECT_EQ(Server().RequestsFor("/f").size(), 1u);  // the probe's
}

}  // namespace
}  // namespace Tarnlo::test
