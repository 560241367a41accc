// One address at an eighth of the speed of the other three: how near the job comes to the time that
// its addresses allow. 20 MiB, or 100 MiB with TARNLO_LONG=1.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <string_view>

#include "support/os/clock.h"
#include "tests/engine/host_fixture.h"

namespace Tarnlo::test {
namespace {

constexpr std::int64_t kMebibyte = 1 << 20;
constexpr std::int64_t kSlowRate = kMebibyte / 2;
constexpr std::int64_t kFastRate = 4 * kMebibyte;
constexpr std::size_t kSlow = 3;  // the last to be drawn, and still as often as any

class SlowUnequalSpeed : public HostScenario {
 protected:
  static std::int64_t FileSize() {
    const char* const wish = std::getenv("TARNLO_LONG");
    return (wish != nullptr && std::string_view(wish) == "1" ? 100 : 20) * kMebibyte;
  }
  // What the addresses that the six workers drew first could send together.
  static std::int64_t DrawnRate(const std::vector<Interval>& first_slow) {
    const auto slow = static_cast<std::int64_t>(first_slow.size());
    return slow * kSlowRate + (6 - slow) * kFastRate;
  }
  // The ranges that were asked of an address, the probe's open one left out.
  static std::vector<Interval> Asked(HostScene& scene, std::size_t index) {
    std::vector<Interval> asked;
    for (const RecordedRequest& request : scene.Hosts()[index].Requests()) {
      long long begin = 0;
      long long end = 0;
      if (request.method == "GET" &&
          std::sscanf(request.Header("Range").c_str(), "bytes=%lld-%lld", &begin, &end) == 2) {
        asked.push_back({begin, end + 1});
      }
    }
    return asked;
  }
};

TEST_F(SlowUnequalSpeed, RangesOfTheSlowAddressAreHandedOn) {
  const Body body(FileSize());
  std::uint32_t begun = 0;
  HostScene& scene = Run(
      4, 4,
      [&](HostScene& made) {
        for (std::size_t i = 0; i < 4; ++i) {
          made.Hosts()[i].Serve("/f", body).Trickling(i == kSlow ? kSlowRate : kFastRate);
        }
      },
      [&](HostScene& made) {
        EXPECT_TRUE(made.Observer().AwaitCount(kEventRangeLength, 6));
        begun = os::TickMs();
      });
  const std::uint32_t took = scene.Observer().StampsOf(kEventFinished).back().tick - begun;
  EXPECT_EQ(m_result, kResultSuccess);
  EXPECT_EQ(FileDifference(scene.Target(L"f"), body), "");

  // A planned range is a sixth; anything shorter was handed on.
  std::vector<Interval> planned;
  int handed_on = 0;
  const std::int64_t sixth = body.size() / 6;
  for (std::size_t i = 0; i < 4; ++i) {
    for (const Interval& asked : Asked(scene, i)) {
      if (asked.begin % sixth > 6 || asked.end - asked.begin < sixth) {
        ++handed_on;
      } else if (i == kSlow) {
        planned.push_back(asked);
      }
    }
  }
  int from_slow = 0;
  for (std::size_t i = 0; i < 4; ++i) {
    from_slow +=
        static_cast<int>(std::ranges::count_if(Asked(scene, i), [&](const Interval& asked) {
          return std::ranges::any_of(planned, [&](const Interval& slow) {
            return asked.begin > slow.begin && asked.end <= slow.end;
          });
        }));
  }
  const double ideal =
      1000.0 * static_cast<double>(body.size()) / static_cast<double>(DrawnRate(planned));
  std::printf(
      "%lld MiB over %zu slow and %zu fast connections: %u ms, ideal %.0f ms, ratio %.2f; "
      "%d ranges handed on, %d of them from slow ones\n",
      static_cast<long long>(body.size() / kMebibyte), planned.size(), 6 - planned.size(), took,
      ideal, took / ideal, handed_on, from_slow);
  EXPECT_GT(handed_on, 0);
  EXPECT_TRUE(planned.empty() || from_slow > 0);
}

}  // namespace
}  // namespace Tarnlo::test
