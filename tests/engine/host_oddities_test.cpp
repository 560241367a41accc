// Whole jobs on URLs that the host table and the connections read differently, and on names at
// their limits.
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "support/os/file.h"
#include "tests/engine/host_fixture.h"
#include "tests/support/hosts_file.h"
#include "tests/support/repeat_until.h"

namespace Tarnlo::test {
namespace {

using Counts = std::vector<int>;

constexpr std::int64_t kSmall = 10'000;
constexpr int kWorkerConnections = 12;  // two for each of six workers

class HostOddity : public HostScenario {
 protected:
  static void ServeWell(HostScene& scene) {
    scene.Hosts().ServeEverywhere("/f", FaultScript(Body(kSmall)));
  }
  void ExpectFile(HostScene& scene) {
    EXPECT_EQ(m_result, kResultSuccess);
    scene.ExpectOneCleanAttempt();
    EXPECT_EQ(FileDifference(scene.Target(L"f"), Body(kSmall)), "");
  }
  static void ExpectBothAskedAndTheFirstFetchedFrom(HostScene& scene) {
    EXPECT_EQ(scene.PassSteps(), (Steps{1, 4, 5, 6, 4, 5, 6, 7, 8, 9, 11}));
    EXPECT_TRUE(scene.Requests().starts_with("HEAD1 HEAD2 GET1 ")) << scene.Requests();
  }
  // The name's URL with something in the place of "http://".
  void BeginWith(const std::wstring& scheme) {
    BeginAt([scheme](HostScene& scene) {
      return scheme + scene.Hosts().Url("/f").substr(std::wstring(L"http://").size());
    });
  }
  static std::wstring Upper(std::wstring text) {
    std::ranges::transform(text, text.begin(), [](wchar_t c) {
      return c >= L'a' && c <= L'z' ? static_cast<wchar_t>(c - L'a' + L'A') : c;
    });
    return text;
  }
};

// The table has the name as it was written, connections look for it in small letters: they find
// none and go by name, to its first address.
TEST_F(HostOddity, NameInCapitalsIsAskedAndThenConnectedToByName) {
  BeginAt([](HostScene& scene) {
    return L"http://" + Upper(scene.Hosts().wide_name()) + L":" +
           std::to_wstring(scene.Hosts().port()) + L"/f";
  });
  HostScene& scene = Run(2, 2, ServeWell);
  ExpectFile(scene);
  EXPECT_EQ(scene.PassSteps(), (Steps{1, 4, 5, 6, 4, 5, 6, 7, 8, 9, 11}));
  EXPECT_EQ(scene.Connections(), (Counts{1 + 1 + kWorkerConnections, 1}));
  EXPECT_EQ(scene.Bodies(), (Counts{6, 0}));
  EXPECT_TRUE(DownHostMgr::Shared().HasEntry(scene.Hosts().wide_name()));
  EXPECT_TRUE(scene.Table().empty());
  EXPECT_EQ(
      DownHostMgr::Shared().Addresses(Upper(scene.Hosts().wide_name())),
      (DownHostMgr::AddressMap{{scene.Hosts().address(0), 0}, {scene.Hosts().address(1), 0}}));
}

// A job adds the scheme before anybody reads the URL.
TEST_F(HostOddity, UrlWithoutSchemeIsAskedAndFetchedAsAnyOther) {
  BeginWith(L"");
  HostScene& scene = Run(2, 2, ServeWell);
  ExpectFile(scene);
  ExpectBothAskedAndTheFirstFetchedFrom(scene);
  EXPECT_TRUE(scene.TableHas({0, 1}));
}

// A URL that cannot be split has no host: the machine's own addresses are asked, and the name is
// connected to by name.
TEST_F(HostOddity, UrlThatCannotBeSplitAsksThisMachine) {
  DownHostMgr& table = DownHostMgr::Shared();
  const bool known = !table.Addresses(L"").empty();
  BeginWith(L"ftp://");
  HostScene& scene = Run(2, 0, ServeWell);
  ExpectFile(scene);
  const std::size_t own = table.Addresses(L"").size();
  ASSERT_GE(own, 1u);
  Steps steps{1};
  if (known) {
    steps.push_back(3);
  } else {
    for (std::size_t i = 0; i < own; ++i) steps.insert(steps.end(), {4, 5});
    steps.insert(steps.end(), {7, 11});
  }
  EXPECT_EQ(scene.PassSteps(), steps);
  EXPECT_EQ(scene.Connections(), (Counts{1 + kWorkerConnections, 0}));
  EXPECT_EQ(scene.RequestsTo(0, "HEAD"), 0);
  EXPECT_TRUE(scene.Table().empty());
}

TEST_F(HostOddity, HttpsUrlWithAPortIsAskedAndFetchedThereWithoutEncryption) {
  BeginWith(L"https://");
  HostScene& scene = Run(2, 2, ServeWell);
  ExpectFile(scene);
  ExpectBothAskedAndTheFirstFetchedFrom(scene);
}

// Port 443 gets the HEAD, in plain HTTP as well, and port 80 everything else.
TEST_F(HostOddity, HttpsUrlWithoutAPortIsAskedOn443AndFetchedFrom80) {
  std::optional<Cdn> port_443;
  BeginAt([](HostScene& scene) { return L"https://" + scene.Hosts().wide_name() + L"/f"; });
  HostScene& scene = RunOn(
      [&](std::optional<HostScene>& made) {
        made.emplace(1, std::uint16_t{80});
        port_443.reset();
        port_443.emplace(1, made->Hosts().name(), std::uint16_t{443});
        ASSERT_TRUE(port_443->valid());
      },
      1,
      [&](HostScene& made) {
        made.Hosts().ServeEverywhere("/f", FaultScript(Body(kSmall)));
        port_443->ServeEverywhere("/f", FaultScript(Body(kSmall)));
      });
  ExpectFile(scene);
  EXPECT_EQ(scene.PassSteps(), (Steps{1, 4, 5, 6, 7, 8, 9, 11}));
  EXPECT_EQ((*port_443)[0].connections(), 1);
  EXPECT_EQ((*port_443)[0].Requests().at(0).method, "HEAD");
  EXPECT_EQ(scene.Connections(), (Counts{1 + kWorkerConnections}));
  EXPECT_EQ(scene.RequestsTo(0, "HEAD"), 0);
}

TEST_F(HostOddity, UrlWithoutAPortIsAskedAndFetchedOn80) {
  BeginAt([](HostScene& scene) { return L"http://" + scene.Hosts().wide_name() + L"/f"; });
  HostScene& scene = RunOn(
      [](std::optional<HostScene>& made) { made.emplace(2, std::uint16_t{80}); }, 2, ServeWell);
  ExpectFile(scene);
  EXPECT_TRUE(scene.Requests().starts_with("HEAD1 HEAD2 GET1 ")) << scene.Requests();
  EXPECT_EQ(scene.Hosts()[0].RequestsFor("/f").at(0).Header("Host"), scene.Hosts().name());
  EXPECT_EQ(scene.Hosts()[0].RequestsFor("/f").at(1).Header("Host"), scene.Hosts().name());
}

// The host that a redirect leads to is not asked, and its connections go by name: to the first of
// its addresses. (A HEAD that is redirected would be followed by the system's client.)
TEST_F(HostOddity, HostLearntByARedirectIsNotAskedAndConnectedToByName) {
  std::optional<HostScene> other;
  HostScene& scene = RunOn(
      [&](std::optional<HostScene>& made) {
        made.emplace(2);
        other.emplace(3);
      },
      2,
      [&](HostScene& made) {
        const std::wstring there = other->Hosts().Url("/f");
        made.Hosts().ServeEverywhere("/f", FaultScript(Body(kSmall))
                                               .RedirectingTo({there.begin(), there.end()})
                                               .WithHeadLength("10000"));
        ServeWell(*other);
      });
  ExpectFile(scene);
  EXPECT_EQ(scene.PassSteps(), (Steps{1, 4, 5, 6, 4, 5, 6, 7, 8, 9, 11}));
  EXPECT_EQ(scene.Requests(), "HEAD1 HEAD2 GET1");  // what it has; the workers know the way
  EXPECT_EQ(other->Connections(), (Counts{1 + kWorkerConnections, 0, 0}));
  EXPECT_EQ(other->RequestsTo(0), 1 + 6);
  EXPECT_TRUE(DownHostMgr::Shared().HasEntry(other->Hosts().wide_name()));
  EXPECT_TRUE(other->Table().empty());
}

TEST_F(HostOddity, NameOf255CharactersIsAskedAndFetched) {
  static int number = 0;
  std::string name;
  HostScene& scene = RunOn(
      [&](std::optional<HostScene>& made) {
        const std::string label(63, 'n');
        std::string first = std::to_string(number++);
        first.resize(63, 'n');
        name = first + "." + label + "." + label + "." + label;
        ASSERT_EQ(name.size(), 255u);
        ASSERT_TRUE(AddHost(name, CdnAddresses(2)));
        made.emplace(2, name);
      },
      2, ServeWell);
  ExpectFile(scene);
  ExpectBothAskedAndTheFirstFetchedFrom(scene);
  for (const RecordedRequest& request : scene.Hosts()[0].Requests()) {
    EXPECT_TRUE(request.Header("Host").starts_with(name)) << request.bytes;
  }
}

// --- Whether the file that is there will do: what each way of telling costs at the servers.

class ExistingTarget : public HostOddity {
 protected:
  // A file of that content is there, and a resource of a version where the test wants one.
  HostScene& RunOver(const Body& there, int answers, const Action& configure = {}) {
    return Run(2, answers, [&](HostScene& scene) {
      WriteFileBytes(scene.Target(L"f"), there.Bytes(0, static_cast<std::size_t>(there.size())));
      scene.Hosts().ServeEverywhere("/f", FaultScript(Body(kSmall)));
      if (configure) configure(scene);
    });
  }
  // Made by `run`, again and again until both addresses have told the size when asked once more.
  static HostScene& RunUntilTheSizeIsTold(const std::function<HostScene&()>& run) {
    HostScene* scene = nullptr;
    RepeatUntil([&] {
      scene = &run();
      return scene->Log().Count("CDownloadManager getCdnFileSize 5") == 2;
    });
    return *scene;
  }
  static bool Says(HostScene& scene, const std::string& text) {
    return scene.JobLines().find(text) != std::string::npos;
  }
};

TEST_F(ExistingTarget, OfTheRightDigestCostsTheHostsHeadsAndOneGet) {
  HostScene& scene = RunOver(Body(kSmall), 2, [](HostScene& made) {
    made.Job().SetMd5Check(true);
    made.Job().SetExpectedMd5(Md5Of(Body(kSmall)));
    made.Job().SetRequiredVersion(L"9.9.9.9");  // the list alone decides
  });
  ExpectFile(scene);
  EXPECT_EQ(scene.JobLines(), "T1 T3 T4 T5 T6 S1 S5 S6 S7 S8 M1 S11 T7 T8 T9 T2");
  EXPECT_EQ(scene.Requests(), "HEAD1 HEAD2 GET1");
  EXPECT_EQ(scene.Bodies(), (Counts{0, 0}));
}

// The list is looked at first, and after it nothing else: not the size, which is right.
TEST_F(ExistingTarget, OfTheRightSizeAndAnotherDigestIsFetched) {
  HostScene& scene = RunOver(Body(kSmall, 2), 2, [](HostScene& made) {
    made.Job().SetMd5Check(true);
    made.Job().SetExpectedMd5(Md5Of(Body(kSmall)));
  });
  ExpectFile(scene);
  EXPECT_TRUE(Says(scene, "S6 S7 S8 M2 S12 ")) << scene.JobLines();
  EXPECT_FALSE(Says(scene, " G1 ")) << scene.JobLines();
  EXPECT_EQ(scene.RequestsTo(0, "HEAD") + scene.RequestsTo(1, "HEAD"), 2);
  EXPECT_EQ(scene.RequestsTo(0) + scene.RequestsTo(1), 1 + 6);
}

TEST_F(ExistingTarget, OfTheRightSizeAndNoVersionIsFetchedWhenOneIsRequired) {
  HostScene& scene =
      RunOver(Body(kSmall, 2), 2, [](HostScene& made) { made.Job().SetRequiredVersion(L"1.2"); });
  ExpectFile(scene);
  EXPECT_TRUE(Says(scene, "S6 S9 S12 ")) << scene.JobLines();
  EXPECT_EQ(scene.RequestsTo(0, "HEAD") + scene.RequestsTo(1, "HEAD"), 2);
}

// With neither a list nor a version the addresses are asked once more, each.
TEST_F(ExistingTarget, OfTheRightSizeCostsEveryAddressAnotherHead) {
  const std::string kLines =
      "T1 T3 T4 T5 T6 S1 S5 S6 G1 G3 G4 G5 G3 G4 G5 G6 G7 C10000, =? 10000 S10 S11 T7 T8 T9 T2";
  HostScene& scene =
      RunUntilTheSizeIsTold([&]() -> HostScene& { return RunOver(Body(kSmall, 2), 2); });
  EXPECT_EQ(m_result, kResultSuccess);
  EXPECT_EQ(FileDifference(scene.Target(L"f"), Body(kSmall, 2)), "");  // left as it was
  EXPECT_EQ(scene.JobLines(), kLines);
  EXPECT_EQ(scene.Requests(), "HEAD1 HEAD2 GET1 HEAD1 HEAD2");
  EXPECT_EQ(scene.Bodies(), (Counts{0, 0}));
}

TEST_F(ExistingTarget, OfAnotherSizeIsFetched) {
  HostScene& scene =
      RunUntilTheSizeIsTold([&]() -> HostScene& { return RunOver(Body(kSmall - 1, 2), 2); });
  ExpectFile(scene);
  EXPECT_TRUE(Says(scene, "=? 9999 S12 S17 ")) << scene.JobLines();
  EXPECT_EQ(scene.RequestsTo(0, "HEAD") + scene.RequestsTo(1, "HEAD"), 4);
}

// A HEAD's answer has 32 bits, so no more of the file's size is compared.
TEST_F(ExistingTarget, OfFourGibibytesAndTenBytesCountsAsTenBytes) {
  constexpr std::int64_t kLength = (std::int64_t{1} << 32) + 10;
  const auto serve = [](HostScene& made) {
    made.Hosts().ServeEverywhere("/f", FaultScript(Body(10)));
    os::File file = os::File::Open(made.Target(L"f"), os::FileAccess::kReadWrite,
                                   os::FileShare::kNone, os::FileCreation::kCreateAlways);
    ASSERT_TRUE(file.Seek(kLength) && file.SetEnd());
  };
  HostScene& scene = RunUntilTheSizeIsTold([&]() -> HostScene& { return Run(2, 2, serve); });
  EXPECT_EQ(m_result, kResultSuccess);
  EXPECT_TRUE(Says(scene, " C10, =? 10 S10 S11 ")) << scene.JobLines();
  EXPECT_EQ(SizeOf(scene.Target(L"f")), kLength);
  EXPECT_EQ(scene.Bodies(), (Counts{0, 0}));
}

}  // namespace
}  // namespace Tarnlo::test
