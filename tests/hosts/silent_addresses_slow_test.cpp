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
constexpr int kTries = 5;

// A pass over them, with servers of its own.
class SilentPass {
 public:
  SilentPass() {
    m_cdn.ServeEverywhere("/f", test::FaultScript(test::Body(5)).HoldingAnswer(m_gate));
  }

  void Run() {
    const test::LogReader log;
    const std::uint32_t begin = os::TickMs();
    EXPECT_TRUE(m_hosts.InitHost(m_cdn.Url("/f").c_str(), nullptr));
    const std::uint32_t took = os::TickMs() - begin;
    std::printf("%zu silent addresses took %u ms\n", kAddresses, took);
    EXPECT_LT(took, kBoundMs);
    m_lines = log.LinesOfThisThread();
  }
  // Whether every server has read its request before the next one was asked. One that is given up
  // before its server has come to read it tells nothing.
  [[nodiscard]] bool WasReadInOrder() {
    int earlier = 0;
    for (std::size_t i = 0; i < kAddresses; ++i) {
      const auto requests = m_cdn[i].Requests();
      EXPECT_LE(requests.size(), 1u) << i;
      if (requests.size() != 1 || requests[0].order <= earlier) return false;
      earlier = requests[0].order;
    }
    return true;
  }
  void ExpectThatAllStay() {
    std::vector<std::string> expected{"[INFO] DownHostMgr InitHost 1"};
    DownHostMgr::AddressMap all;
    for (std::size_t i = 0; i < kAddresses; ++i) {
      expected.insert(expected.end(),
                      {"[INFO] DownHostMgr InitHost 4", "[INFO] DownHostMgr InitHost 5"});
      all.emplace(m_cdn.address(i), 0);
    }
    expected.insert(expected.end(),
                    {"[INFO] DownHostMgr InitHost 7", "[INFO] DownHostMgr InitHost 11"});
    EXPECT_EQ(m_lines, expected);
    EXPECT_EQ(m_hosts.Addresses(m_cdn.wide_name()), all);
  }
  [[nodiscard]] bool valid() const { return m_cdn.valid(); }

 private:
  test::Gate m_gate;
  test::Cdn m_cdn{static_cast<int>(kAddresses)};
  DownHostMgr m_hosts;
  std::vector<std::string> m_lines;
};

TEST(SlowSilentAddresses, TwentyAreGivenUpOneAfterAnotherAndStay) {
  bool in_order = false;
  for (int i = 0; i < kTries && !in_order; ++i) {
    SilentPass pass;
    ASSERT_TRUE(pass.valid());
    pass.Run();
    pass.ExpectThatAllStay();
    in_order = pass.WasReadInOrder();
  }
  EXPECT_TRUE(in_order);
}

}  // namespace
}  // namespace Tarnlo
