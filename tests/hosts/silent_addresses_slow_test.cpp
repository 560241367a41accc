// A name of many addresses that accept and never answer.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <string>
#include <vector>

#include "hosts/down_host_mgr.h"
#include "support/os/clock.h"
#include "tests/support/cdn.h"
#include "tests/support/gate.h"
#include "tests/support/test_log.h"

namespace Tarnlo {
namespace {

constexpr std::size_t kAddresses = 20;
// Each is given 100 ms; half of the 10 s that a single receive may last elsewhere.
constexpr std::uint32_t kBoundMs = 5000;

TEST(SlowSilentAddresses, TwentyAreGivenUpOneAfterAnotherAndStay) {
  test::Cdn cdn(kAddresses);
  ASSERT_TRUE(cdn.valid());
  const test::Gate silence;
  cdn.ServeEverywhere("/f", test::FaultScript(test::Body(5)).HoldingAnswer(silence));
  DownHostMgr hosts;
  const test::LogReader log;
  const std::uint32_t begin = os::TickMs();
  EXPECT_TRUE(hosts.InitHost(cdn.Url("/f").c_str(), nullptr));
  const std::uint32_t took = os::TickMs() - begin;
  std::printf("%zu silent addresses took %u ms\n", kAddresses, took);
  EXPECT_LT(took, kBoundMs);

  std::vector<std::string> expected{"[INFO] DownHostMgr InitHost 1"};
  DownHostMgr::AddressMap all;
  for (std::size_t i = 0; i < kAddresses; ++i) {
    expected.insert(expected.end(),
                    {"[INFO] DownHostMgr InitHost 4", "[INFO] DownHostMgr InitHost 5"});
    all.emplace(cdn.address(i), 0);
  }
  expected.insert(expected.end(),
                  {"[INFO] DownHostMgr InitHost 7", "[INFO] DownHostMgr InitHost 11"});
  EXPECT_EQ(log.LinesOfThisThread(), expected);
  EXPECT_EQ(hosts.Addresses(cdn.wide_name()), all);
  int earlier = 0;
  for (std::size_t i = 0; i < kAddresses; ++i) {
    const auto requests = cdn[i].Requests();
    ASSERT_EQ(requests.size(), 1u) << i;
    EXPECT_GT(requests[0].order, earlier);
    earlier = requests[0].order;
  }
}

}  // namespace
}  // namespace Tarnlo
