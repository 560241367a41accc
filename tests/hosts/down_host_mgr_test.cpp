#include "hosts/down_host_mgr.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <shared_mutex>
#include <thread>
#include <vector>

#include "support/os/clock.h"
#include "support/os/head_client.h"
#include "tests/faults/faults.h"
#include "tests/support/cdn.h"
#include "tests/support/gate.h"
#include "tests/support/meeting.h"
#include "tests/support/repeat_until.h"
#include "tests/support/test_log.h"
#include "tests/support/test_socket.h"

namespace Tarnlo {
namespace {

using test::Body;
using test::FaultScript;
using Steps = std::vector<int>;
using AddressMap = DownHostMgr::AddressMap;

class DownHostMgrTest : public testing::Test {
 protected:
  // A server at every address of a name, answering with these lengths.
  test::Cdn& MakeCdn(const std::vector<std::int64_t>& lengths) {
    test::Cdn& cdn = m_cdn.emplace(static_cast<int>(lengths.size()));
    EXPECT_TRUE(cdn.valid());
    for (std::size_t i = 0; i < cdn.size(); ++i) cdn[i].Serve("/f", Body(lengths[i]));
    return cdn;
  }
  bool Init(const std::wstring& url, const os::Event* stop = nullptr) {
    return InitNull(url.c_str(), stop);
  }
  bool InitNull(const wchar_t* url, const os::Event* stop = nullptr) {
    const test::LogReader log;
    const bool result = m_hosts->InitHost(url, stop);
    m_steps = StepsIn(log.LinesOfThisThread());
    return result;
  }
  // With a fresh table, until as many addresses as in these steps, which are expected then, or
  // exactly so many have told their length: an answer may miss the limits of 6 and 10 ms.
  bool InitUntil(const std::wstring& url, const Steps& steps) {
    const bool result = InitUntil(url, [&] {
      return std::ranges::all_of(std::array{4, 5, 6}, [&](int step) {
        return std::ranges::count(m_steps, step) == std::ranges::count(steps, step);
      });
    });
    EXPECT_EQ(m_steps, steps);
    return result;
  }
  bool InitUntilAnswers(const std::wstring& url, std::ptrdiff_t answers) {
    return InitUntil(url, [&] { return std::ranges::count(m_steps, 6) == answers; });
  }
  AddressMap Table() { return m_hosts->Addresses(m_cdn->wide_name()); }
  AddressMap Unused(const std::vector<std::size_t>& servers) {
    AddressMap map;
    for (const std::size_t i : servers) map[m_cdn->address(i)] = 0;
    return map;
  }

  std::optional<test::Cdn> m_cdn;
  std::unique_ptr<DownHostMgr> m_hosts = std::make_unique<DownHostMgr>();
  Steps m_steps;

 private:
  bool InitUntil(const std::wstring& url, const std::function<bool()>& in_time) {
    bool result = false;
    const bool was_in_time = test::RepeatUntil([&] {
      m_hosts = std::make_unique<DownHostMgr>();
      result = Init(url);
      return in_time();
    });
    EXPECT_TRUE(was_in_time) << testing::PrintToString(m_steps);
    return result;
  }
  static Steps StepsIn(const std::vector<std::string>& lines) {
    static const std::string kPrefix = "[INFO] DownHostMgr InitHost ";
    Steps steps;
    for (const std::string& line : lines) {
      EXPECT_TRUE(line.starts_with(kPrefix)) << line;
      steps.push_back(std::stoi(line.substr(kPrefix.size())));
    }
    return steps;
  }
};

TEST_F(DownHostMgrTest, AddressWithAnotherLengthIsRemoved) {
  MakeCdn({1000, 1000, 999});
  EXPECT_TRUE(InitUntil(m_cdn->Url("/f"), Steps{1, 4, 5, 6, 4, 5, 6, 4, 5, 6, 7, 8, 8, 9, 10, 11}));
  EXPECT_EQ(Table(), Unused({0, 1}));
}

TEST_F(DownHostMgrTest, TieKeepsTheSmallerLength) {
  MakeCdn({700, 500});
  EXPECT_TRUE(InitUntil(m_cdn->Url("/f"), Steps{1, 4, 5, 6, 4, 5, 6, 7, 8, 9, 10, 11}));
  EXPECT_EQ(Table(), Unused({1}));
}

TEST_F(DownHostMgrTest, AgreementKeepsAll) {
  MakeCdn({5, 5, 5});
  EXPECT_TRUE(InitUntil(m_cdn->Url("/f"), Steps{1, 4, 5, 6, 4, 5, 6, 4, 5, 6, 7, 8, 9, 11}));
  EXPECT_EQ(Table(), Unused({0, 1, 2}));
}

TEST_F(DownHostMgrTest, NobodyAnswersAndAllStay) {
  MakeCdn({5, 5, 5});
  for (std::size_t i = 0; i < 3; ++i) m_cdn->Close(i);
  EXPECT_TRUE(InitUntil(m_cdn->Url("/f"), Steps{1, 4, 5, 4, 5, 4, 5, 7, 11}));
  EXPECT_EQ(Table(), Unused({0, 1, 2}));
}

TEST_F(DownHostMgrTest, LengthZeroIsNoAnswer) {
  MakeCdn({0, 0});
  EXPECT_TRUE(InitUntil(m_cdn->Url("/f"), Steps{1, 4, 5, 6, 4, 5, 6, 7, 11}));
  EXPECT_EQ(Table(), Unused({0, 1}));
}

TEST_F(DownHostMgrTest, DeadAddressIsRemovedWhenAnotherAnswers) {
  MakeCdn({5, 5, 5});
  m_cdn->Close(0);
  EXPECT_TRUE(InitUntil(m_cdn->Url("/f"), Steps{1, 4, 5, 4, 5, 6, 4, 5, 6, 7, 8, 9, 10, 11}));
  EXPECT_EQ(Table(), Unused({1, 2}));
}

TEST_F(DownHostMgrTest, SilentAddressIsGivenUpAndRemoved) {
  test::Cdn& cdn = m_cdn.emplace(2);
  ASSERT_TRUE(cdn.valid());
  const test::Gate gate;
  cdn[0].Serve("/f", Body(5)).HoldingAnswer(gate);
  cdn[1].Serve("/f", Body(5));
  EXPECT_TRUE(InitUntil(cdn.Url("/f"), Steps{1, 4, 5, 4, 5, 6, 7, 8, 9, 10, 11}));
  EXPECT_EQ(Table(), Unused({1}));
}

// The status is not looked at: an error page's length votes.
TEST_F(DownHostMgrTest, LengthOfAnErrorPageVotes) {
  test::Cdn& cdn = m_cdn.emplace(3);
  ASSERT_TRUE(cdn.valid());
  cdn[0].Serve("/f", Body(50)).WithHeadStatus("404 Not Found");
  cdn[1].Serve("/f", Body(50)).WithHeadStatus("405 Method Not Allowed");
  cdn[2].Serve("/f", Body(1000));
  EXPECT_TRUE(InitUntilAnswers(cdn.Url("/f"), 3));
  EXPECT_EQ(Table(), Unused({0, 1}));
}

TEST_F(DownHostMgrTest, RequestNamesTheHostAndLeavesTheQueryOut) {
  MakeCdn({5});
  EXPECT_TRUE(InitUntilAnswers(m_cdn->Url("/f?key=1"), 1));
  const auto requests = (*m_cdn)[0].Requests();
  ASSERT_FALSE(requests.empty());
  EXPECT_TRUE(requests[0].bytes.starts_with("HEAD /f HTTP/1.1\r\n")) << requests[0].bytes;
  EXPECT_EQ(requests[0].Header("Host"), m_cdn->name());
}

TEST_F(DownHostMgrTest, SecondCallProbesNothing) {
  MakeCdn({5, 5});
  EXPECT_TRUE(Init(m_cdn->Url("/f")));
  EXPECT_TRUE(Init(m_cdn->Url("/another")));
  EXPECT_EQ(m_steps, (Steps{1, 3}));
  for (const std::size_t i : {0U, 1U}) EXPECT_TRUE((*m_cdn)[i].RequestsFor("/another").empty());
}

TEST_F(DownHostMgrTest, NullUrlGivesNothing) {
  EXPECT_FALSE(InitNull(nullptr));
  EXPECT_EQ(m_steps, (Steps{1, 2}));
}

TEST_F(DownHostMgrTest, NameThatDoesNotResolveHasAnEmptyEntryAndIsTriedAgain) {
  for (int i = 0; i < 2; ++i) {
    EXPECT_FALSE(Init(L"http://nowhere.tarnlo.test/f"));
    EXPECT_EQ(m_steps, (Steps{1, 7, 11}));
    EXPECT_TRUE(m_hosts->HasEntry(L"nowhere.tarnlo.test"));
    EXPECT_TRUE(m_hosts->Addresses(L"nowhere.tarnlo.test").empty());
  }
}

TEST_F(DownHostMgrTest, KeyIsTheHostAsWritten) {
  MakeCdn({5, 5});
  EXPECT_TRUE(
      InitUntilAnswers(L"http://CDN2.Tarnlo.Test:" + std::to_wstring(m_cdn->port()) + L"/f", 2));
  EXPECT_EQ(m_hosts->Addresses(L"CDN2.Tarnlo.Test"), Unused({0, 1}));
  EXPECT_FALSE(m_hosts->HasEntry(L"cdn2.tarnlo.test"));
  EXPECT_EQ(m_hosts->AcquireHostIp(L"cdn2.tarnlo.test", nullptr), 0u);
}

// An empty host name means this machine, whose addresses are probed in vain.
TEST_F(DownHostMgrTest, UrlWithoutSchemeHasAnEmptyHost) {
  const bool result = Init(L"cdn2.tarnlo.test/f");
  EXPECT_TRUE(m_hosts->HasEntry(L""));
  EXPECT_EQ(result, !m_hosts->Addresses(L"").empty());
  EXPECT_FALSE(m_hosts->HasEntry(L"cdn2.tarnlo.test"));
  EXPECT_EQ(m_steps.front(), 1);
  EXPECT_EQ(m_steps.back(), 11);
}

TEST_F(DownHostMgrTest, UrlWithAPartThatDoesNotFitHasAnEmptyHost) {
  const std::wstring user(512, L'u');
  Init(L"http://" + user + L"@cdn2.tarnlo.test/f");
  EXPECT_TRUE(m_hosts->HasEntry(L""));
  EXPECT_FALSE(m_hosts->HasEntry(L"cdn2.tarnlo.test"));
}

TEST_F(DownHostMgrTest, HandlesAreClosedOnEveryPath) {
  MakeCdn({5, 6, 5});
  m_cdn->Close(2);
  Init(m_cdn->Url("/f"));
  (*m_cdn)[0].Serve("/g").AnsweringRaw("nonsense\r\n\r\n");
  m_hosts = std::make_unique<DownHostMgr>();
  Init(m_cdn->Url("/g"));
  // Exchanges that earlier tests left behind may end only now.
  for (int i = 0; i < 3000 && os::OpenHeadHandles() != 0; ++i) os::SleepMs(10);
  EXPECT_EQ(os::OpenHeadHandles(), 0);
}

// --- Choosing and giving back

class HostChoiceTest : public DownHostMgrTest {
 protected:
  void SetUp() override {
    MakeCdn({5, 5, 5});
    for (std::size_t i = 0; i < 3; ++i) m_cdn->Close(i);  // nobody answers: all three stay
    ASSERT_TRUE(Init(m_cdn->Url("/f")));
  }
  os::Ipv4Address Acquire() { return m_hosts->AcquireHostIp(m_cdn->wide_name(), nullptr); }
  void Release(os::Ipv4Address address) { m_hosts->ReleaseHostIp(m_cdn->wide_name(), address); }
  void AcquireTimes(int count) {
    for (int i = 0; i < count; ++i) Acquire();
  }
  os::Ipv4Address Address(std::size_t index) { return m_cdn->address(index); }
};

TEST_F(HostChoiceTest, FirstUnusedComesFirstThenTheLeastUsed) {
  for (int round = 0; round < 3; ++round) {
    for (std::size_t i = 0; i < 3; ++i) EXPECT_EQ(Acquire(), Address(i));
  }
}

TEST_F(HostChoiceTest, UnusedAddressWinsOverBusyOnesBeforeIt) {
  AcquireTimes(3);
  Release(Address(2));
  EXPECT_EQ(Acquire(), Address(2));
}

TEST_F(HostChoiceTest, SmallestCountWins) {
  AcquireTimes(6);
  Release(Address(1));
  EXPECT_EQ(Table(), (AddressMap{{Address(0), 2}, {Address(1), 1}, {Address(2), 2}}));
  EXPECT_EQ(Acquire(), Address(1));
}

TEST_F(HostChoiceTest, CountNeverFallsBelowZero) {
  Release(Address(0));
  AcquireTimes(1);
  Release(Address(0));
  Release(Address(0));
  EXPECT_EQ(Table(), Unused({0, 1, 2}));
}

TEST_F(HostChoiceTest, UnknownAddressesChangeNothing) {
  AcquireTimes(1);
  Release(0);
  Release(test::AddressOf("10.0.0.1"));
  EXPECT_EQ(Table(), (AddressMap{{Address(0), 1}, {Address(1), 0}, {Address(2), 0}}));
}

// A clean worker takes X, then Y, and gives Y back twice.
TEST_F(HostChoiceTest, AddressThatIsNotGivenBackStaysRaised) {
  const os::Ipv4Address x = Acquire();
  const os::Ipv4Address y = Acquire();
  Release(y);
  Release(y);
  EXPECT_EQ(Table(), (AddressMap{{x, 1}, {y, 0}, {Address(2), 0}}));
}

TEST_F(DownHostMgrTest, LookingForAnUnknownHostMakesAnEmptyEntry) {
  EXPECT_EQ(m_hosts->AcquireHostIp(L"a.tarnlo.test", nullptr), 0u);
  EXPECT_TRUE(m_hosts->HasEntry(L"a.tarnlo.test"));
  m_hosts->ReleaseHostIp(L"b.tarnlo.test", test::AddressOf("127.0.0.1"));
  EXPECT_TRUE(m_hosts->HasEntry(L"b.tarnlo.test"));
  EXPECT_FALSE(m_hosts->HasEntry(L"c.tarnlo.test"));
}

// --- While a pass runs: eight addresses that stay silent for 100 ms each

class RunningPassTest : public DownHostMgrTest {
 protected:
  void SetUp() override { MakeSilentCdn(); }
  void TearDown() override { AwaitAllHeads(); }
  // One may begin when nobody waits for it any more.
  void AwaitAllHeads() { EXPECT_TRUE(m_faults.AwaitCalls(os::Call::kHead, 8 * m_passes)); }
  void MakeSilentCdn() {
    test::Cdn& cdn = m_cdn.emplace(8);
    ASSERT_TRUE(cdn.valid());
    m_gate = test::Gate();
    cdn.ServeEverywhere("/f", FaultScript(Body(5)).HoldingAnswer(m_gate));
    m_url = cdn.Url("/f");
  }
  // Returns when the pass has the table: it asks the first address.
  std::jthread StartPass(const os::Event* stop = nullptr) {
    AwaitAllHeads();
    std::jthread pass([this, stop] { m_result = m_hosts->InitHost(m_url.c_str(), stop); });
    EXPECT_TRUE(m_faults.AwaitCalls(os::Call::kHead, 8 * m_passes + 1));
    ++m_passes;
    return pass;
  }
  // Whether `act`, with the thread that waits for a pass and that thread's stop event, was right
  // and done before the pass was. Where the machine itself is away for the whole 800 ms of a pass
  // that tells nothing: the next pass has a table of its own.
  bool IsDoneWhileAPassRuns(const std::function<bool(std::jthread&, os::Event&)>& act) {
    return test::RepeatUntil([&] {
      m_hosts = std::make_unique<DownHostMgr>();
      os::Event stop;
      std::jthread pass = StartPass(&stop);
      if (act(pass, stop) && Table().empty()) return true;
      AwaitPass();
      return false;
    });
  }
  // Nobody is given an address before it is over.
  os::Ipv4Address AwaitPass() { return m_hosts->AcquireHostIp(m_cdn->wide_name(), nullptr); }
  int Uses() {
    int sum = 0;
    for (const auto& [address, uses] : Table()) sum += uses;
    return sum;
  }

  test::Faults m_faults;
  int m_passes = 0;  // that were begun
  test::Gate m_gate;
  std::wstring m_url;
  bool m_result = false;
};

TEST_F(RunningPassTest, ThirtyTwoThreadsWaitAndGetEveryAddressInTurn) {
  const std::jthread pass = StartPass();
  std::vector<os::Ipv4Address> taken(32);
  {
    std::vector<std::jthread> threads;
    for (os::Ipv4Address& address : taken) {
      threads.emplace_back([&] { address = m_hosts->AcquireHostIp(m_cdn->wide_name(), nullptr); });
    }
  }
  AddressMap expected;
  for (std::size_t i = 0; i < 8; ++i) expected[m_cdn->address(i)] = 4;
  EXPECT_EQ(Table(), expected);
  for (const os::Ipv4Address address : taken) {
    EXPECT_EQ(std::ranges::count(taken, address), 4);
    m_hosts->ReleaseHostIp(m_cdn->wide_name(), address);
  }
  EXPECT_EQ(Uses(), 0);
}

TEST_F(RunningPassTest, CallersOfTheSameHostWaitForTheOnePass) {
  const std::jthread pass = StartPass();
  {
    std::vector<std::jthread> threads;
    for (int i = 0; i < 8; ++i) {
      threads.emplace_back([&] {
        const test::LogReader log;
        EXPECT_TRUE(m_hosts->InitHost(m_url.c_str(), nullptr));
        EXPECT_EQ(log.LinesOfThisThread(),
                  (std::vector<std::string>{"[INFO] DownHostMgr InitHost 1",
                                            "[INFO] DownHostMgr InitHost 3"}));
      });
    }
  }
  EXPECT_EQ(Table().size(), 8u);
  EXPECT_TRUE(m_faults.AwaitCalls(os::Call::kHead, 8));
  EXPECT_EQ(m_faults.Calls(os::Call::kHead), 8);
}

TEST_F(RunningPassTest, CallersAtTheSameMomentProbeOnce) {
  // Again with a table and servers of its own: a HEAD may be given up before it has reached them.
  EXPECT_TRUE(test::RepeatUntil([this] {
    MakeSilentCdn();
    m_hosts = std::make_unique<DownHostMgr>();
    ++m_passes;
    {
      test::Meeting start(16);
      std::vector<std::jthread> threads;
      for (int i = 0; i < 16; ++i) {
        threads.emplace_back([&] {
          start.Attend();
          EXPECT_TRUE(m_hosts->InitHost(m_url.c_str(), nullptr));
        });
      }
    }
    bool all = true;
    for (std::size_t i = 0; i < 8; ++i) {
      EXPECT_LE((*m_cdn)[i].connections(), 1);
      all = all && (*m_cdn)[i].connections() == 1;
    }
    return all;
  }));
}

TEST_F(RunningPassTest, StoppedCallerLeavesAndThePassCommits) {
  EXPECT_TRUE(IsDoneWhileAPassRuns([this](std::jthread& pass, os::Event& stop) {
    stop.Set();
    pass.join();
    return !m_result;
  }));
  EXPECT_EQ(AwaitPass(), m_cdn->address(0));
  EXPECT_EQ(Table().size(), 8u);
}

TEST_F(RunningPassTest, StoppedThreadsGetNothingAndLeaveNoTrace) {
  os::Event stopped;
  stopped.Set();
  EXPECT_TRUE(IsDoneWhileAPassRuns([&](std::jthread&, os::Event&) {
    return m_hosts->AcquireHostIp(m_cdn->wide_name(), &stopped) == 0 &&
           !m_hosts->InitHost(m_url.c_str(), &stopped);
  }));
  EXPECT_TRUE(m_result);  // the pass's own caller has waited for it
  EXPECT_EQ(Table().size(), 8u);
  EXPECT_EQ(Uses(), 0);
}

TEST_F(RunningPassTest, GivingBackDoesNotWait) {
  EXPECT_TRUE(IsDoneWhileAPassRuns([this](std::jthread&, os::Event&) {
    m_hosts->ReleaseHostIp(m_cdn->wide_name(), m_cdn->address(0));
    return m_hosts->HasEntry(m_cdn->wide_name());
  }));
}

TEST_F(RunningPassTest, TableMayGoWhileAPassRuns) {
  os::Event stop;
  {
    const std::jthread pass = StartPass(&stop);
    stop.Set();
  }
  m_hosts.reset();
  EXPECT_TRUE(m_faults.AwaitCalls(os::Call::kHead, 8));
}

// --- Every hand-out is accounted for

class SharedHostTest : public RunningPassTest {
 protected:
  static constexpr int kThreads = 32;
  using Counts = std::map<os::Ipv4Address, std::int32_t>;

  // Runs `work` on 32 threads while a pass has the table; ends with them.
  void WhileAPassRuns(const std::function<void()>& work) {
    const std::jthread pass = StartPass();
    std::vector<std::jthread> threads;
    for (int i = 0; i < kThreads; ++i) threads.emplace_back(work);
  }
  os::Ipv4Address Take() {
    const os::Ipv4Address address = m_hosts->AcquireHostIp(m_cdn->wide_name(), nullptr);
    EXPECT_NE(address, 0u);
    const std::lock_guard guard(m_counting);
    ++m_taken[address];
    return address;
  }
  void GiveBack(os::Ipv4Address address) { m_hosts->ReleaseHostIp(m_cdn->wide_name(), address); }

  std::mutex m_counting;
  Counts m_taken;
};

// Clean workers: each takes X, then Y, and gives Y back twice; X stays raised. The second giving
// back takes another worker's use away, or finds none: each is watched while nobody takes.
TEST_F(SharedHostTest, WorkersThatGiveTheirSecondAddressBackTwiceAreAccountedFor) {
  std::shared_mutex takers;
  Counts given_back;
  WhileAPassRuns([&] {
    os::Ipv4Address y = 0;
    for (int i = 0; i < 2; ++i) {
      const std::shared_lock taking(takers);
      y = Take();
    }
    for (int i = 0; i < 2; ++i) {
      const std::unique_lock nobody_takes(takers);
      const std::int32_t before = Table()[y];
      GiveBack(y);
      const std::int32_t after = Table()[y];
      EXPECT_EQ(after, std::max(before - 1, 0));
      given_back[y] += before - after;
    }
  });
  int taken = 0;
  int effective = 0;
  for (const auto& [address, uses] : Table()) {
    EXPECT_EQ(uses + given_back[address], m_taken[address]);
    taken += m_taken[address];
    effective += given_back[address];
  }
  EXPECT_EQ(taken, 2 * kThreads);
  EXPECT_EQ(Uses() + effective, 2 * kThreads);
  EXPECT_GE(Uses(), 0);
  EXPECT_GE(effective, kThreads);  // the first of each worker's
}

// The same without anyone watching: nobody gives back what another has taken, and nothing is left.
TEST_F(SharedHostTest, TakingAndGivingBackAtOnceLosesNothing) {
  const std::wstring name = m_cdn->wide_name();
  std::atomic<int> have_one{0};
  WhileAPassRuns([&] {
    const os::Ipv4Address first = m_hosts->AcquireHostIp(name, nullptr);
    ++have_one;
    while (have_one < kThreads) std::this_thread::yield();
    m_hosts->ReleaseHostIp(name, first);
    for (int i = 0; i < 20'000; ++i) {
      const os::Ipv4Address x = m_hosts->AcquireHostIp(name, nullptr);
      const os::Ipv4Address y = m_hosts->AcquireHostIp(name, nullptr);
      m_hosts->ReleaseHostIp(name, y);
      m_hosts->ReleaseHostIp(name, x);
    }
  });
  EXPECT_EQ(Table().size(), 8u);
  EXPECT_EQ(Uses(), 0);
}

}  // namespace
}  // namespace Tarnlo
