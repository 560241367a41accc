// Whole jobs on names of several addresses: which of them are asked, kept, connected to, in which
// order and how often, and what the log says.
#include <gtest/gtest.h>

#include <functional>
#include <numeric>
#include <optional>
#include <string>
#include <vector>

#include "tests/engine/host_fixture.h"

namespace Tarnlo::test {
namespace {

using Counts = std::vector<int>;

constexpr std::int64_t kSmall = 10'000;

// Every worker connects twice, and only the second connection carries a request.
constexpr int kWorkerConnections = 12;

class HostJob : public HostScenario {
 protected:
  // Lets no body through before the probe and all six workers have their answer, so that every
  // worker has taken its two addresses before any is given back: they are spread evenly.
  FaultScript Held(const Body& body) const { return FaultScript(body).StallingAfter(0, *m_gate); }
  HostScene& RunHeld(int addresses, int answers, const Action& serve) {
    return Run(
        addresses, answers,
        [&](HostScene& scene) {
          m_gate.emplace();
          serve(scene);
        },
        [&](HostScene&) {
          EXPECT_TRUE(m_gate->AwaitArrivals(7));
          m_gate->Open();
        });
  }
  // With every address alike.
  HostScene& RunHeldAlike(int addresses, int answers, const std::function<FaultScript()>& script) {
    return RunHeld(addresses, answers,
                   [&](HostScene& scene) { scene.Hosts().ServeEverywhere("/f", script()); });
  }
  void ExpectFile(HostScene& scene, const Body& body) {
    EXPECT_EQ(m_result, kResultSuccess);
    scene.ExpectOneCleanAttempt();
    EXPECT_EQ(FileDifference(scene.Target(L"f"), body), "");
  }
  static int Sum(const Counts& counts) { return std::accumulate(counts.begin(), counts.end(), 0); }

  std::optional<Gate> m_gate;
};

TEST_F(HostJob, AddressOfAnotherLengthIsAskedOnceAndNeverConnectedToAgain) {
  HostScene& scene = RunHeld(3, 3, [this](HostScene& made) {
    made.Hosts()[0].Serve("/f") = Held(Body(1000));
    made.Hosts()[1].Serve("/f") = Held(Body(1000));
    made.Hosts()[2].Serve("/f") = Held(Body(999));
  });
  ExpectFile(scene, Body(1000));
  EXPECT_EQ(scene.PassSteps(), (Steps{1, 4, 5, 6, 4, 5, 6, 4, 5, 6, 7, 8, 8, 9, 10, 11}));
  EXPECT_EQ(scene.Connections(), (Counts{1 + 1 + 6, 1 + 6, 1}));
  EXPECT_TRUE(scene.Requests().starts_with("HEAD1 HEAD2 HEAD3 GET1 ")) << scene.Requests();
  EXPECT_EQ(Sum(scene.Bodies()), 6);
  EXPECT_EQ(scene.Bodies()[2], 0);
  EXPECT_TRUE(scene.TableHas({0, 1}));
}

TEST_F(HostJob, TieGoesToTheSmallerLength) {
  HostScene& scene = RunHeld(2, 2, [this](HostScene& made) {
    made.Hosts()[0].Serve("/f") = Held(Body(700));
    made.Hosts()[1].Serve("/f") = Held(Body(500));
  });
  ExpectFile(scene, Body(500));
  EXPECT_EQ(scene.PassSteps(), (Steps{1, 4, 5, 6, 4, 5, 6, 7, 8, 9, 10, 11}));
  EXPECT_EQ(scene.Connections(), (Counts{1, 1 + 1 + kWorkerConnections}));
  EXPECT_TRUE(scene.Requests().starts_with("HEAD1 HEAD2 GET2 ")) << scene.Requests();
  EXPECT_EQ(scene.Bodies(), (Counts{0, 6}));
  EXPECT_TRUE(scene.TableHas({1}));
}

TEST_F(HostJob, AddressesThatAgreeShareTheConnectionsEvenly) {
  HostScene& scene = RunHeldAlike(3, 3, [this] { return Held(Body(kSmall)); });
  ExpectFile(scene, Body(kSmall));
  EXPECT_EQ(scene.PassSteps(), (Steps{1, 4, 5, 6, 4, 5, 6, 4, 5, 6, 7, 8, 9, 11}));
  EXPECT_EQ(scene.Connections(), (Counts{1 + 1 + 4, 1 + 4, 1 + 4}));
  EXPECT_EQ(Sum(scene.Bodies()), 6);
}

// With one worker every step is its own turn. The probe asks twice and gives its first connection
// not back; the worker connects in vain once.
TEST_F(HostJob, LeastUsedAddressesComeInTheirOrder) {
  HostScene& scene = Run(3, 3, [](HostScene& made) {
    made.Hosts().ServeEverywhere("/f", FaultScript(Body(kSmall)).IgnoringRanges());
  });
  ExpectFile(scene, Body(kSmall));
  EXPECT_EQ(scene.Requests(), "HEAD1 HEAD2 HEAD3 GET1 GET2 GET3");
  EXPECT_EQ(scene.Connections(), (Counts{1 + 1, 1 + 1 + 1, 1 + 1}));
  EXPECT_EQ(scene.Bodies(), (Counts{0, 0, 1}));
  EXPECT_EQ(scene.Table(), (DownHostMgr::AddressMap{{scene.Hosts().address(0), 1},
                                                    {scene.Hosts().address(1), 1},
                                                    {scene.Hosts().address(2), 0}}));
}

TEST_F(HostJob, NobodyAnswersHeadAndAllAreUsed) {
  const Gate silence;
  HostScene& scene =
      RunHeldAlike(3, kOnlyAsked, [&] { return Held(Body(kSmall)).HoldingHead(silence); });
  ExpectFile(scene, Body(kSmall));
  EXPECT_EQ(scene.PassSteps(), (Steps{1, 4, 5, 4, 5, 4, 5, 7, 11}));
  silence.Open();
  EXPECT_EQ(scene.Connections(), (Counts{1 + 1 + 4, 1 + 4, 1 + 4}));
  EXPECT_TRUE(scene.TableHas({0, 1, 2}));
}

TEST_F(HostJob, RefusedHeadWithoutLengthKeepsAll) {
  HostScene& scene = RunHeldAlike(2, kOnlyAsked, [this] {
    return Held(Body(kSmall)).WithHeadStatus("405 Method Not Allowed").WithHeadLength("");
  });
  ExpectFile(scene, Body(kSmall));
  EXPECT_EQ(scene.PassSteps(), (Steps{1, 4, 5, 4, 5, 7, 11}));
  EXPECT_EQ(scene.Connections(), (Counts{1 + 1 + 6, 1 + 6}));
}

TEST_F(HostJob, RefusedHeadOfLengthZeroKeepsAll) {
  HostScene& scene = RunHeldAlike(2, 2, [this] {
    return Held(Body(kSmall)).WithHeadStatus("405 Method Not Allowed").WithHeadLength("0");
  });
  ExpectFile(scene, Body(kSmall));
  EXPECT_EQ(scene.PassSteps(), (Steps{1, 4, 5, 6, 4, 5, 6, 7, 11}));
  EXPECT_EQ(scene.Connections(), (Counts{1 + 1 + 6, 1 + 6}));
}

// The status of the answer is not looked at.
TEST_F(HostJob, LengthOfErrorPagesOutvotesTheRightAddress) {
  HostScene& scene = RunHeld(3, 3, [this](HostScene& made) {
    const FaultScript page =
        Held(Body(kSmall)).WithHeadStatus("404 Not Found").WithHeadLength("50");
    made.Hosts()[0].Serve("/f") = page;
    made.Hosts()[1].Serve("/f") = page;
    made.Hosts()[2].Serve("/f") = Held(Body(kSmall));
  });
  ExpectFile(scene, Body(kSmall));
  EXPECT_EQ(scene.PassSteps(), (Steps{1, 4, 5, 6, 4, 5, 6, 4, 5, 6, 7, 8, 9, 10, 11}));
  EXPECT_EQ(scene.Connections(), (Counts{1 + 1 + 6, 1 + 6, 1}));
}

TEST_F(HostJob, DeadAddressIsLeftOutWhenOthersAnswer) {
  HostScene& scene = RunHeld(3, 2, [this](HostScene& made) {
    made.Hosts().ServeEverywhere("/f", Held(Body(kSmall)));
    made.Hosts().Close(1);
  });
  ExpectFile(scene, Body(kSmall));
  EXPECT_EQ(scene.PassSteps(), (Steps{1, 4, 5, 6, 4, 5, 4, 5, 6, 7, 8, 9, 10, 11}));
  EXPECT_EQ(scene.Connections(), (Counts{1 + 1 + 6, -1, 1 + 6}));
  EXPECT_EQ(scene.Log().Count("CCustomizeSocket Connect ip: 127.0.2.2"), 0);
  EXPECT_EQ(scene.Log().Count("CCustomizeSocket Connect 6"), 0);
  EXPECT_TRUE(scene.TableHas({0, 2}));
}

// The second job finds the addresses that the first has left.
TEST_F(HostJob, SecondJobAsksNobody) {
  HostScene& scene = Run(3, 3, [](HostScene& made) {
    made.Hosts()[0].Serve("/f", Body(kSmall));
    made.Hosts()[1].Serve("/f", Body(kSmall));
    made.Hosts()[2].Serve("/f", Body(kSmall + 1));
  });
  ExpectFile(scene, Body(kSmall));
  for (std::size_t i = 0; i < 2; ++i) scene.Hosts()[i].Serve("/g", Body(kSmall, 2));
  scene.RenewJob();
  ASSERT_TRUE(scene.Begin("/g"));
  EXPECT_EQ(scene.End(), kResultSuccess);
  scene.ExpectOneCleanAttempt();
  EXPECT_EQ(FileDifference(scene.Target(L"g"), Body(kSmall, 2)), "");
  EXPECT_EQ(scene.PassSteps(), (Steps{1, 3}));
  for (std::size_t i = 0; i < 3; ++i) EXPECT_EQ(scene.RequestsTo(i, "HEAD"), 1);
  EXPECT_EQ(scene.Connections()[2], 1);
}

}  // namespace
}  // namespace Tarnlo::test
