// One address at an eighth of the speed of the other three: how near the job comes to the time that
// its addresses allow. 20 MiB, or 100 MiB with TARNLO_LONG=1.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <optional>
#include <set>
#include <string_view>
#include <vector>

#include "support/os/clock.h"
#include "tests/engine/host_fixture.h"

namespace Tarnlo::test {
namespace {

constexpr std::int64_t kMebibyte = 1 << 20;
constexpr std::int64_t kSlowRate = kMebibyte / 2;
constexpr std::int64_t kFastRate = 4 * kMebibyte;
constexpr int kWorkers = 6;
constexpr int kTries = 5;         // until a worker has drawn the slow address
constexpr std::size_t kSlow = 3;  // the last to be drawn, and still as often as any

class SlowUnequalSpeed : public HostScenario {
 protected:
  static std::int64_t FileSize() {
    const char* const wish = std::getenv("TARNLO_LONG");
    return (wish != nullptr && std::string_view(wish) == "1" ? 100 : 20) * kMebibyte;
  }
  // What the addresses that the six workers drew first could send together.
  static std::int64_t DrawnRate(std::size_t slow_workers) {
    const auto slow = static_cast<std::int64_t>(slow_workers);
    return slow * kSlowRate + (kWorkers - slow) * kFastRate;
  }
  // The workers that asked the slow address for the range that was planned for them.
  static std::set<std::int32_t> SlowWorkers(HostScene& scene, std::int64_t size) {
    std::set<std::int32_t> workers;
    for (const RecordedRequest& request : scene.Hosts()[kSlow].Requests()) {
      const std::optional<Interval> asked = request.AskedRange();
      if (!asked || asked->end - asked->begin < size / kWorkers) continue;  // a look at ranges
      const std::int64_t index = asked->begin / (size / kWorkers);
      const std::int64_t planned = index == 0 ? 0 : size / kWorkers * index + size % kWorkers;
      if (asked->begin == planned) workers.insert(static_cast<std::int32_t>(index));
    }
    return workers;
  }
  // The donor of each range that was handed on: a worker is told its second range, and right after
  // it another's range is told to be shorter by just that much.
  static std::vector<std::int32_t> Donors(HostScene& scene) {
    std::map<std::int32_t, std::int64_t> lengths;
    std::vector<std::int32_t> donors;
    std::int64_t just_given = 0;  // to a worker that had had a range before
    for (const JobObserver::Stamp& told : scene.Observer().StampsOf(kEventRangeLength)) {
      const auto before = lengths.find(told.code);
      const bool had_one = before != lengths.end();
      if (just_given > 0 && had_one && before->second - just_given == told.number) {
        donors.push_back(told.code);
        just_given = 0;
      } else {
        just_given = had_one ? told.number : 0;
      }
      lengths[told.code] = told.number;
    }
    return donors;
  }
};

TEST_F(SlowUnequalSpeed, RangesOfTheSlowAddressAreHandedOn) {
  const Body body(FileSize());
  std::uint32_t begun = 0;
  const auto run = [&]() -> HostScene& {
    return Run(
        4, 4,
        [&](HostScene& made) {
          for (std::size_t i = 0; i < 4; ++i) {
            made.Hosts()[i].Serve("/f", body).Trickling(i == kSlow ? kSlowRate : kFastRate);
          }
        },
        [&](HostScene& made) {
          EXPECT_TRUE(made.Observer().AwaitCount(kEventRangeLength, kWorkers));
          begun = os::TickMs();
        });
  };
  HostScene* scene = &run();
  for (int i = 1; i < kTries && SlowWorkers(*scene, body.size()).empty(); ++i) scene = &run();
  const std::uint32_t took = scene->Observer().StampsOf(kEventFinished).back().tick - begun;
  EXPECT_EQ(m_result, kResultSuccess);
  scene->ExpectOneCleanAttempt();
  EXPECT_EQ(FileDifference(scene->Target(L"f"), body), "");

  const std::set<std::int32_t> slow = SlowWorkers(*scene, body.size());
  const std::vector<std::int32_t> donors = Donors(*scene);
  const auto from_slow =
      std::ranges::count_if(donors, [&](std::int32_t donor) { return slow.contains(donor); });
  const double ideal =
      1000.0 * static_cast<double>(body.size()) / static_cast<double>(DrawnRate(slow.size()));
  std::printf(
      "%lld MiB over %zu slow and %zu fast connections: %u ms, ideal %.0f ms, ratio %.2f; "
      "%zu ranges handed on, %lld of them from slow ones\n",
      static_cast<long long>(body.size() / kMebibyte), slow.size(), kWorkers - slow.size(), took,
      ideal, took / ideal, donors.size(), static_cast<long long>(from_slow));
  EXPECT_FALSE(slow.empty());
  EXPECT_GT(from_slow, 0);
}

}  // namespace
}  // namespace Tarnlo::test
