// A name of many addresses that accept and never answer.
#include <gtest/gtest.h>

#include <cstdio>
#include <set>
#include <string>
#include <vector>

#include "hosts/down_host_mgr.h"
#include "support/os/clock.h"
#include "tests/faults/faults.h"
#include "tests/support/cdn.h"
#include "tests/support/gate.h"
#include "tests/support/repeat_until.h"
#include "tests/support/test_log.h"

namespace Tarnlo {
namespace {

constexpr std::size_t kAddresses = 20;
// Each is given 100 ms. Unbounded, the pass would last as long as the servers are silent, for ever.
constexpr std::uint32_t kBoundMs = 10'000;

// A pass over them, with servers of its own.
class SilentPass {
 public:
  SilentPass() {
    m_cdn.ServeEverywhere("/f", test::FaultScript(test::Body(5)).HoldingAnswer(m_gate));
  }

  void Run() {
    const test::LogReader log;
    const std::uint32_t begin = os::TickMs();
    test::Faults faults;
    faults.WatchWaits(100);
    EXPECT_TRUE(m_hosts.InitHost(m_cdn.Url("/f").c_str(), nullptr));
    m_bounded = faults.Waits();
    EXPECT_LE(m_bounded, static_cast<int>(kAddresses));
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
    DownHostMgr::AddressMap all;
    for (std::size_t i = 0; i < kAddresses; ++i) all.emplace(m_cdn.address(i), 0);
    EXPECT_EQ(m_hosts.Addresses(m_cdn.wide_name()), all);
    std::vector<std::string> rest = m_lines;
    std::erase_if(rest, [](const std::string& line) {
      return line.ends_with(" InitHost 4") || line.ends_with(" InitHost 5");
    });
    EXPECT_EQ(rest, (std::vector<std::string>{"[INFO] DownHostMgr InitHost 1",
                                              "[INFO] DownHostMgr InitHost 7",
                                              "[INFO] DownHostMgr InitHost 11"}));
  }
  // That each address was asked and connected to, and waited for at most 100 ms. An exchange that
  // the machine keeps from its first lines for as long tells less; one that is over before anybody
  // waits needs no bound.
  [[nodiscard]] bool ToldEveryStepInTime() const {
    std::vector<std::string> expected{"[INFO] DownHostMgr InitHost 1"};
    for (std::size_t i = 0; i < kAddresses; ++i) {
      expected.insert(expected.end(),
                      {"[INFO] DownHostMgr InitHost 4", "[INFO] DownHostMgr InitHost 5"});
    }
    expected.insert(expected.end(),
                    {"[INFO] DownHostMgr InitHost 7", "[INFO] DownHostMgr InitHost 11"});
    return m_lines == expected && m_bounded == static_cast<int>(kAddresses);
  }
  [[nodiscard]] bool valid() const { return m_cdn.valid(); }

 private:
  test::Gate m_gate;
  test::Cdn m_cdn{static_cast<int>(kAddresses)};
  DownHostMgr m_hosts;
  std::vector<std::string> m_lines;
  int m_bounded = 0;  // waits
};

TEST(SlowSilentAddresses, TwentyAreGivenUpOneAfterAnotherAndStay) {
  std::set<std::size_t> asked;
  bool told = false;
  EXPECT_TRUE(test::RepeatUntil([&] {
    SilentPass pass;
    EXPECT_TRUE(pass.valid());
    if (!pass.valid()) return true;
    pass.Run();
    pass.ExpectThatAllStay();
    pass.NoteWhoWasAsked(asked);
    told = told || pass.ToldEveryStepInTime();
    return told && asked.size() == kAddresses;
  })) << asked.size()
      << " were asked, every step was told: " << told;
}

}  // namespace
}  // namespace Tarnlo
