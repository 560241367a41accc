// A name of many addresses that accept and never answer.
#include <gtest/gtest.h>

#include <cstdio>
#include <set>
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
// Each is given 100 ms. Unbounded, the pass would last as long as the servers are silent, for ever.
constexpr std::uint32_t kBoundMs = 10'000;
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
  // Nobody is asked twice. One that is given up before its server has come to read it tells
  // nothing.
  void NoteWhoWasAsked(std::set<std::size_t>& asked) {
    for (std::size_t i = 0; i < kAddresses; ++i) {
      const auto requests = m_cdn[i].Requests();
      EXPECT_LE(requests.size(), 1u) << i;
      if (!requests.empty()) asked.insert(i);
    }
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
  std::set<std::size_t> asked;
  for (int i = 0; i < kTries && asked.size() < kAddresses; ++i) {
    SilentPass pass;
    ASSERT_TRUE(pass.valid());
    pass.Run();
    pass.ExpectThatAllStay();
    pass.NoteWhoWasAsked(asked);
  }
  EXPECT_EQ(asked.size(), kAddresses);
}

}  // namespace
}  // namespace Tarnlo
