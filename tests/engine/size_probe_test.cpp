#include "engine/size_probe.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <optional>
#include <vector>

#include "tests/support/cdn.h"
#include "tests/support/repeat_until.h"
#include "tests/support/stopped_exchange.h"
#include "tests/support/test_log.h"

namespace Tarnlo {
namespace {

using test::Body;
using Steps = std::vector<int>;

class SizeProbeTest : public testing::Test {
 protected:
  void MakeCdn(const std::vector<std::int64_t>& lengths) {
    m_cdn.emplace(static_cast<int>(lengths.size()));
    ASSERT_TRUE(m_cdn->valid());
    for (std::size_t i = 0; i < lengths.size(); ++i) (*m_cdn)[i].Serve("/f", Body(lengths[i]));
  }
  std::uint32_t Probe(const std::wstring& url, const os::Event* stop = nullptr) {
    static const std::string kPrefix = "[INFO] CDownloadManager getCdnFileSize ";
    const test::LogReader log;
    const std::uint32_t size = ProbeCdnFileSize(url, stop);
    m_steps.clear();
    for (const std::string& line : log.LinesOfThisThread()) {
      EXPECT_TRUE(line.starts_with(kPrefix)) << line;
      m_steps.push_back(std::stoi(line.substr(kPrefix.size())));
    }
    return size;
  }
  std::uint32_t ProbeUntilAnswers(std::ptrdiff_t answers) {
    return ProbeUntilAnswers(m_cdn->Url("/f"), answers);
  }
  // An answer may miss the limits of 6 and 10 ms.
  std::uint32_t ProbeUntilAnswers(const std::wstring& url, std::ptrdiff_t answers) {
    std::uint32_t size = 0;
    test::RepeatUntil([&] {
      size = Probe(url);
      return std::ranges::count(m_steps, 5) == answers;
    });
    return size;
  }

  std::optional<test::Cdn> m_cdn;
  Steps m_steps;
};

TEST_F(SizeProbeTest, MostAddressesDecide) {
  MakeCdn({200, 100, 200});
  EXPECT_EQ(ProbeUntilAnswers(3), 200u);
  EXPECT_EQ(m_steps, (Steps{1, 3, 4, 5, 3, 4, 5, 3, 4, 5, 6, 7, 7}));
}

TEST_F(SizeProbeTest, TieKeepsTheSmallerSize) {
  MakeCdn({200, 100});
  EXPECT_EQ(ProbeUntilAnswers(2), 100u);
  EXPECT_EQ(m_steps, (Steps{1, 3, 4, 5, 3, 4, 5, 6, 7}));
}

TEST_F(SizeProbeTest, AddressThatRefusesDoesNotVote) {
  MakeCdn({100, 200});
  m_cdn->Close(0);
  EXPECT_EQ(ProbeUntilAnswers(1), 200u);
  EXPECT_EQ(m_steps, (Steps{1, 3, 4, 3, 4, 5, 6, 7}));
}

// Unlike the host table's pass, which has room of that size for every part.
TEST_F(SizeProbeTest, UserAndPasswordMayHaveAnyLength) {
  MakeCdn({100});
  std::wstring url = m_cdn->Url("/f");
  url.insert(url.find(L"//") + 2, std::wstring(600, L'u') + L":" + std::wstring(600, L'p') + L"@");
  EXPECT_EQ(ProbeUntilAnswers(url, 1), 100u);
}

TEST_F(SizeProbeTest, NobodyAnswersAndTheSizeIsUnknown) {
  MakeCdn({100, 100});
  m_cdn->Close(0);
  m_cdn->Close(1);
  EXPECT_TRUE(test::RepeatUntil([&] {
    EXPECT_EQ(Probe(m_cdn->Url("/f")), 0u);
    return std::ranges::count(m_steps, 3) == 2 && std::ranges::count(m_steps, 4) == 2;
  }));
  EXPECT_EQ(m_steps, (Steps{1, 3, 4, 3, 4, 6}));
}

TEST_F(SizeProbeTest, NoUrlIsNoSize) {
  EXPECT_EQ(Probe(L""), 0u);
  EXPECT_EQ(m_steps, (Steps{1, 2}));
}

TEST_F(SizeProbeTest, NameThatDoesNotResolveIsNoSize) {
  EXPECT_EQ(Probe(L"http://nowhere.tarnlo.test/f"), 0u);
  EXPECT_EQ(m_steps, (Steps{1, 6}));
}

TEST_F(SizeProbeTest, StopDuringAnExchangeLeavesAtOnce) {
  m_cdn.emplace(8);
  ASSERT_TRUE(m_cdn->valid());
  m_cdn->ServeEverywhere("/f", test::FaultScript(Body(5)));
  EXPECT_TRUE(test::IsEndedInTheFirstExchange(
      [&](const os::Event& stop) { EXPECT_EQ(Probe(m_cdn->Url("/f"), &stop), 0u); }));
  EXPECT_EQ(m_steps, Steps{1});
}

TEST_F(SizeProbeTest, StoppedBeforehandAsksNobody) {
  MakeCdn({5});
  os::Event stop;
  stop.Set();
  EXPECT_EQ(Probe(m_cdn->Url("/f"), &stop), 0u);
  EXPECT_EQ((*m_cdn)[0].connections(), 0);
}

}  // namespace
}  // namespace Tarnlo
