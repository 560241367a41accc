// Every call to the system fails once: a whole download of two attempts is run again and again, and
// each time the next of its calls is refused, until a run needs none that fails.
#include <gtest/gtest.h>

#include <cstdio>
#include <map>
#include <string>

#include "support/os/thread.h"
#include "tests/engine/job_fixture.h"
#include "tests/faults/faults.h"
#include "tests/support/long_run.h"
#include "tests/support/process_usage.h"

namespace Tarnlo::test {
namespace {

constexpr std::int64_t kSize = 60'000;
constexpr std::uint32_t kWaitDivisor = 50;
constexpr int kShortStride = 11;  // how many calls the short form lets pass
constexpr int kSlackHandles = 10;
// Ends the torture should it never come to its end; a run makes some hundred calls.
constexpr int kMostCalls = 20'000;

// What makes the first attempt fail, and whether the trailer or both files' deletion follows.
enum class FirstAttempt { kShortBodies, kWrongBytes };

class SlowTorture : public testing::TestWithParam<FirstAttempt> {
 protected:
  // A server on an address of its own each time, so that each run resolves and asks for itself.
  static std::string NextAddress() {
    static int number = 0;
    ++number;
    return "127.3." + std::to_string(number / 250) + "." + std::to_string(number % 250 + 1);
  }
  static void Serve(FaultServer& server) {
    if (GetParam() == FirstAttempt::kShortBodies) {
      server.Serve("/f", Body(kSize)).Times(15).ClosingAfter(4'000);
    } else {
      server.Serve("/f", Body(kSize, 2)).Times(9);
    }
    server.Serve("/f", Body(kSize));
  }

  // One download of which the `nth` call fails, and what it needs to come right. False when no call
  // failed any more.
  bool RunWithFault(int nth) {
    FaultServer server(NextAddress());
    Serve(server);
    const TempFolder folder;
    const std::wstring url = server.Url("/f");
    JobObserver observer;
    CDownloadManager job;
    job.SetObserver(&observer);
    job.SetMd5Check(true);
    job.SetExpectedMd5(Md5Of(Body(kSize)));
    std::string failed = "none";
    {
      Faults faults;
      faults.DivideWaits(kWaitDivisor);
      faults.FailAny(nth);
      Run(job, url, folder, observer);
      if (faults.Failed() > 0) failed = faults.LastFailed();
      ++m_failed[failed];
    }
    SCOPED_TRACE("call " + std::to_string(nth) + ": " + failed);
    Faults undisturbed;
    undisturbed.DivideWaits(kWaitDivisor);
    int runs = 1;
    // Bytes that came wrong may be found out by the next run only.
    for (; runs < 3 && m_result != kResultSuccess; ++runs) {
      EXPECT_TRUE(job.RenewStopEvent());
      Run(job, url, folder, observer);
    }
    EXPECT_EQ(m_result, kResultSuccess);
    EXPECT_EQ(FileDifference(folder.File(L"f"), Body(kSize)), "");
    EXPECT_EQ(folder.Names(), std::vector<std::wstring>{L"f"});
    return failed != "none";
  }

  // A run whose end is told once, or that does not begin.
  void Run(CDownloadManager& job, const std::wstring& url, const TempFolder& folder,
           JobObserver& observer) {
    const std::size_t told = observer.CountOf(kEventFinished);
    m_result = kNothingTold;
    const bool started = job.Download(url.c_str(), folder.path().c_str(), L"", kTaskId, false);
    if (started) {
      ASSERT_TRUE(observer.AwaitCount(kEventFinished, told + 1));
      m_result = static_cast<std::int32_t>(observer.StampsOf(kEventFinished)[told].number);
    }
    job.Stop();
    EXPECT_EQ(observer.CountOf(kEventFinished), told + (started ? 1 : 0));
  }

  std::int32_t m_result = kNothingTold;
  std::map<std::string, int> m_failed;
};

TEST_P(SlowTorture, EachRunEndsOnceAndTheFileComesRight) {
  StartTestLog();
  RunWithFault(kMostCalls);  // what is made once and kept
  const int handles = OpenHandles();
  const std::uint32_t forced_ends = os::ForcedEnds();
  m_failed.clear();
  const int stride = LongRun() ? 1 : kShortStride;
  int nth = 1;
  while (nth < kMostCalls && RunWithFault(nth) && !HasFailure()) nth += stride;
  EXPECT_LT(nth, kMostCalls);
  EXPECT_EQ(os::ForcedEnds(), forced_ends);
  EXPECT_LE(SettledHandles(handles + kSlackHandles), handles + kSlackHandles);
  std::printf("figures: the %d calls of a run, every %d. refused:", nth - 1, stride);
  for (const auto& [name, count] : m_failed) std::printf(" %s %d,", name.c_str(), count);
  std::printf("\n");
}

INSTANTIATE_TEST_SUITE_P(TwoAttempts, SlowTorture,
                         testing::Values(FirstAttempt::kShortBodies, FirstAttempt::kWrongBytes));

}  // namespace
}  // namespace Tarnlo::test
