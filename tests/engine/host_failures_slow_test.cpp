// Whole jobs whose addresses fail: names that do not resolve yet, addresses that refuse, die in
// the middle or serve a wrong file. A refusal costs the whole time limit of a connect, and a second
// attempt begins after three seconds, so the runs that wait for either go side by side.
#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include "tests/engine/host_fixture.h"
#include "tests/support/hosts_file.h"

namespace Tarnlo::test {
namespace {

using Steps = std::vector<int>;

constexpr std::int64_t kSmall = 10'000;
constexpr std::int64_t kLarge = 600'000;

class SlowHostFailure : public testing::Test {
 protected:
  struct Runs {
    HostScene resolves_late{2};
    HostScene first_is_dead{2};
    HostScene dies{2};
    HostScene wrong_file{2};
    std::string late_name = "late-" + resolves_late.Hosts().name();
    Gate living;
    Gate dying;
  };

  static void SetUpTestSuite() {
    s_runs = std::make_unique<Runs>();
    Runs& runs = *s_runs;
    // No address tells a length, so that all of them stay.
    const FaultScript small = FaultScript(Body(kSmall)).WithHeadLength("");
    const FaultScript large = FaultScript(Body(kLarge)).WithHeadLength("");
    runs.resolves_late.Hosts().ServeEverywhere("/f", small);
    runs.first_is_dead.Hosts()[1].Serve("/f") = small;
    runs.first_is_dead.Hosts().Close(0);
    runs.dies.Hosts()[0].Serve("/f") = FaultScript(large).StallingAfter(1000, runs.living);
    runs.dies.Hosts()[1].Serve("/f") = FaultScript(large).StallingAfter(1000, runs.dying);
    // The second address serves one range of another file.
    runs.wrong_file.Hosts()[0].Serve("/f") = small;
    runs.wrong_file.Hosts()[1].Serve("/f", Body(kSmall, 2)).ForPieces().Times(1);
    runs.wrong_file.Hosts()[1].Serve("/f") = small;
    runs.wrong_file.Job().SetMd5Check(true);
    runs.wrong_file.Job().SetExpectedMd5(Md5Of(Body(kSmall)));
    const std::string late =
        "http://" + runs.late_name + ":" + std::to_string(runs.resolves_late.Hosts().port()) + "/f";
    ASSERT_TRUE(runs.resolves_late.StartAt({late.begin(), late.end()}));
    for (HostScene* run : {&runs.first_is_dead, &runs.wrong_file}) ASSERT_TRUE(run->Begin());
  }
  static void TearDownTestSuite() { s_runs.reset(); }

  static void ExpectFile(HostScene& run, const Body& body) {
    EXPECT_EQ(run.End(), kResultSuccess);
    EXPECT_EQ(FileDifference(run.Target(L"f"), body), "");
  }
  // As if there were half a hundred connections to the other.
  static void PreferTheFirst(const HostScene& run) {
    const std::wstring name = run.Hosts().wide_name();
    DownHostMgr& table = DownHostMgr::Shared();
    for (int i = 0; i < 100; ++i) table.AcquireHostIp(name, nullptr);
    const os::Ipv4Address first = run.Hosts().address(0);
    while (run.Table().at(first) > 0) table.ReleaseHostIp(name, first);
  }
  static int Attempts(const HostScene& run) {
    return static_cast<int>(
        std::ranges::count(run.JobThreadLines(), "[INFO] ThreadProc_DownloadMTR 6"));
  }

  static std::unique_ptr<Runs> s_runs;
};

std::unique_ptr<SlowHostFailure::Runs> SlowHostFailure::s_runs;

TEST_F(SlowHostFailure, NameThatResolvesInTheSecondAttemptIsAskedAndFetchedThen) {
  HostScene& run = s_runs->resolves_late;
  ASSERT_TRUE(run.AwaitPassStep(11));
  EXPECT_EQ(run.Passes(), (Steps{1, 7, 11}));
  EXPECT_EQ(run.Requests(), "");
  ASSERT_TRUE(AddHost(s_runs->late_name, CdnAddresses(2)));
  ExpectFile(run, Body(kSmall));
  EXPECT_EQ(Attempts(run), 2);
  EXPECT_EQ(run.Passes(), (Steps{1, 7, 11, 1, 7, 11}));
  EXPECT_TRUE(run.Requests("GET").starts_with("GET1 ")) << run.Requests();
}

// Every worker has begun; those of the living address end, then the other one goes. What it has
// not sent comes from the living one, which is chosen from then on.
TEST_F(SlowHostFailure, AddressThatDiesInTheMiddleLeavesItsRangesToTheOther) {
  HostScene& run = s_runs->dies;
  ASSERT_TRUE(run.Begin());
  ASSERT_TRUE(run.Observer().AwaitEachHas(6, 1));
  s_runs->living.Open();
  ASSERT_TRUE(run.Hosts()[0].AwaitIdle());
  const int before = run.RequestsTo(0);
  EXPECT_EQ(before + run.RequestsTo(1), 1 + 6);
  EXPECT_GE(run.RequestsTo(1), 1);
  EXPECT_FALSE(run.Has(run.Target(L"f")));
  PreferTheFirst(run);
  run.Hosts().Close(1);
  ExpectFile(run, Body(kLarge));
  EXPECT_GT(run.RequestsTo(0), before);
}

TEST_F(SlowHostFailure, WrongRangeFromOneAddressIsFoundByTheDigestAndAllIsFetchedAgain) {
  HostScene& run = s_runs->wrong_file;
  ExpectFile(run, Body(kSmall));
  EXPECT_EQ(Attempts(run), 2);
  const std::string lines = run.JobLines();
  const std::size_t mismatch = lines.find(" M2 F14 F16 T17 T18 T19 T21 ");
  EXPECT_NE(mismatch, std::string::npos) << lines;
  EXPECT_NE(lines.find(" M1 F13 F15 ", mismatch), std::string::npos) << lines;
  EXPECT_EQ(run.RequestsTo(0) + run.RequestsTo(1), 2 * (1 + 6));
  EXPECT_EQ(run.Passes(), (Steps{1, 7, 11, 1, 3}));  // a host is asked once
  EXPECT_LE(run.RequestsTo(0, "HEAD"), 1);
  EXPECT_LE(run.RequestsTo(1, "HEAD"), 1);
}

// The probe draws the dead address first. It stays in use, so the second attempt's probe draws the
// other one. Workers lean away from the dead one too, but may still draw it, and one that does
// twice leaves its range behind.
TEST_F(SlowHostFailure, DeadAddressThatNobodyVotesOutStaysInUse) {
  HostScene& run = s_runs->first_is_dead;
  const std::int32_t result = run.End();
  EXPECT_EQ(Attempts(run), 2);
  EXPECT_EQ(run.Passes(), (Steps{1, 7, 11, 1, 3}));
  EXPECT_TRUE(run.JobLines().starts_with("T1 T3 T4 T5 T6 S1 S2 T7 T8 T10 ")) << run.JobLines();
  EXPECT_TRUE(run.Requests("GET").starts_with("GET2")) << run.Requests();
  EXPECT_TRUE(run.TableHas({0, 1}));
  EXPECT_GE(run.Table().at(run.Hosts().address(0)), 1);
  if (result == kResultSuccess) {
    EXPECT_EQ(FileDifference(run.Target(L"f"), Body(kSmall)), "");
  } else {
    EXPECT_EQ(result, kResultTooFewBytes);
    EXPECT_EQ(ReadTrailer(run.Temporary(L"f"), kSmall).count, 6u);
  }
}

}  // namespace
}  // namespace Tarnlo::test
