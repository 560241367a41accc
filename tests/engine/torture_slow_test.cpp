// Every call to the system fails once: a whole download of two attempts is run again and again, and
// each time the next of its calls is refused, until a run needs none that fails.
#include <gtest/gtest.h>

#include <cstdio>
#include <functional>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include "support/os/thread.h"
#include "tests/engine/job_fixture.h"
#include "tests/faults/faults.h"
#include "tests/support/gate.h"
#include "tests/support/long_run.h"
#include "tests/support/process_usage.h"

namespace Tarnlo::test {
namespace {

constexpr std::int64_t kSize = 60'000;
constexpr std::uint32_t kDivisor = 500;  // a save is due every 10 ms
// What the first answers take before they end: a tenth of a second, and one of them two.
constexpr std::int64_t kOneTenth = 100'000;
constexpr std::int64_t kTwoTenths = 20'000;
constexpr int kShortStride = 11;  // how many calls the short form lets pass
// Ends the torture should it never come to its end; a run makes some hundred calls.
constexpr int kMostCalls = 20'000;

// What makes the first attempt fail, and whether the trailer or both files' deletion follows.
enum class FirstAttempt { kShortBodies, kWrongBytes };

class SlowTorture : public testing::TestWithParam<FirstAttempt> {
 protected:
  using Arm = std::function<void(Faults& faults)>;

  // A server on an address of its own each time, so that each run resolves and asks for itself.
  static std::string NextAddress() {
    static int number = 0;
    ++number;
    return "127.3." + std::to_string(number / 250) + "." + std::to_string(number % 250 + 1);
  }
  // The last of the six connections gets no answer before the gate is open, and ends after the
  // others: the trailer is saved in between.
  static void Serve(FaultServer& server, const Gate& last) {
    if (GetParam() == FirstAttempt::kShortBodies) {
      server.Serve("/f", Body(kSize)).ForPieces().Times(5).Trickling(kOneTenth).ClosingAfter(4'000);
      server.Serve("/f", Body(kSize))
          .ForPieces()
          .Times(1)
          .HoldingAnswer(last)
          .Trickling(kTwoTenths)
          .ClosingAfter(4'000);
      server.Serve("/f", Body(kSize)).ForPieces().Times(6).ClosingAfter(4'000);
    } else {
      server.Serve("/f", Body(kSize, 2)).ForPieces().Times(5);
      server.Serve("/f", Body(kSize, 2)).ForPieces().Times(1).HoldingAnswer(last);
    }
    server.Serve("/f", Body(kSize));
  }

  // One download with calls that fail, and what it needs to come right. The kind of the call that
  // failed, "none" when there was none.
  std::string RunWithFaults(const std::string& which, const Arm& arm, bool saving_twice = false) {
    FaultServer server(NextAddress());
    Gate last;
    Serve(server, last);
    const TempFolder folder;
    const std::wstring url = server.Url("/f");
    JobObserver observer;
    CDownloadManager job;
    job.SetObserver(&observer);
    // Only where bytes come wrong: a digest would also mend what a wrong trailer has done.
    job.SetMd5Check(GetParam() == FirstAttempt::kWrongBytes);
    job.SetExpectedMd5(Md5Of(Body(kSize)));
    std::string failed = "none";
    {
      Faults faults;
      faults.DivideWaits(kDivisor);
      faults.DivideIntervals(kDivisor);
      arm(faults);
      std::jthread opener;
      if (saving_twice) {
        // The second is begun when the first has been written to the trailer.
        opener = std::jthread([&] {
          EXPECT_TRUE(faults.AwaitCalls(os::Call::kFlush, 2));
          last.Open();
        });
      } else {
        last.Open();
      }
      Run(job, url, folder, observer);
      opener = {};
      if (faults.Failed() > 0) failed = faults.LastFailed();
      for (int kind = 0; kind < os::kCalls; ++kind) {
        m_calls[static_cast<os::Call>(kind)] = faults.Calls(static_cast<os::Call>(kind));
      }
    }
    ++m_failed[failed];
    SCOPED_TRACE(which + ": " + failed);
    Complete(job, url, folder, observer);
    return failed;
  }
  // The same, and that nothing is left of it when the server is gone.
  std::string Refuse(const std::string& which, const Arm& arm, bool saving_twice = false) {
    std::string failed = RunWithFaults(which, arm, saving_twice);
    EXPECT_LE(SettledHandles(m_handles), m_handles) << which << ": " << failed;
    return failed;
  }

  // Short and wrong answers may last into the next run, and bytes that came wrong may be found out
  // by it alone.
  void Complete(CDownloadManager& job, const std::wstring& url, const TempFolder& folder,
                JobObserver& observer) {
    Faults undisturbed;
    undisturbed.DivideWaits(kDivisor);
    undisturbed.DivideIntervals(kDivisor);
    for (int runs = 1; runs < 3 && m_result != kResultSuccess; ++runs) {
      EXPECT_TRUE(job.RenewStopEvent());
      Run(job, url, folder, observer);
      if (runs == 2) ++m_third_runs;
    }
    EXPECT_EQ(m_result, kResultSuccess);
    EXPECT_EQ(FileDifference(folder.File(L"f"), Body(kSize)), "");
    EXPECT_EQ(folder.Names(), std::vector<std::wstring>{L"f"});
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

  // One of each kind, all of which a run makes, whatever the strides later meet. A save is made for
  // certain only in a run that waits for it.
  void RefuseOneOfEachKind() {
    const std::map<os::Call, int> calls = m_calls;
    for (const auto& [kind, count] : calls) {
      if (HasFailure()) return;
      const std::string name = "the first of kind " + std::to_string(static_cast<int>(kind));
      EXPECT_GT(count, 0) << name;
      const auto fail = [kind = kind](Faults& faults) { faults.Fail(kind); };
      EXPECT_NE(Refuse(name, fail, kind == os::Call::kFlush), "none") << name;
    }
  }

  std::int32_t m_result = kNothingTold;
  int m_handles = kMostCalls;  // that a run may leave
  int m_third_runs = 0;
  std::map<std::string, int> m_failed;
  std::map<os::Call, int> m_calls;  // of the run with the fault
};

TEST_P(SlowTorture, EachRunEndsOnceAndTheFileComesRight) {
  StartTestLog();
  constexpr bool kSavingTwice = true;
  // What is made once and kept.
  RunWithFaults(
      "none", [](Faults& /*faults*/) {}, kSavingTwice);
  m_handles = OpenHandles() + HandlesThatComeAndGo();
  const std::uint32_t forced_ends = os::ForcedEnds();
  m_failed.clear();
  RefuseOneOfEachKind();
  const auto fails = [this](int nth) {
    return Refuse("call " + std::to_string(nth), [nth](Faults& faults) { faults.FailAny(nth); }) !=
           "none";
  };
  const int stride = LongRun() ? 1 : kShortStride;
  int nth = 1;
  while (nth < kMostCalls && fails(nth) && !HasFailure()) nth += stride;
  EXPECT_LT(nth, kMostCalls);
  EXPECT_EQ(os::ForcedEnds(), forced_ends);
  std::printf("figures: one of each kind, and of the %d calls of a run every %d. refused:", nth - 1,
              stride);
  for (const auto& [name, count] : m_failed) std::printf(" %s %d,", name.c_str(), count);
  std::printf(" %d needed a third run\n", m_third_runs);
}

INSTANTIATE_TEST_SUITE_P(TwoAttempts, SlowTorture,
                         testing::Values(FirstAttempt::kShortBodies, FirstAttempt::kWrongBytes));

}  // namespace
}  // namespace Tarnlo::test
