// Jobs on names of several addresses that no other job of the process has used.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "hosts/down_host_mgr.h"
#include "tests/engine/job_fixture.h"
#include "tests/support/cdn.h"

namespace Tarnlo::test {

// A name that exists from now on, with the addresses of the test names of that count.
std::string UnusedName(int addresses);

// A job and the servers of a name: since a host is probed once in the life of a process, every
// scene has a name of its own.
class HostScene : public TestJob {
 public:
  explicit HostScene(int addresses, std::uint16_t port = 0)
      : HostScene(addresses, UnusedName(addresses), port) {}
  HostScene(int addresses, const std::string& name, std::uint16_t port = 0);
  ~HostScene() override { Job().Stop(); }

  Cdn& Hosts() { return m_hosts; }
  [[nodiscard]] const Cdn& Hosts() const { return m_hosts; }
  // Begins a run from the name.
  bool Begin(const std::string& path = "/f") { return StartAt(m_hosts.Url(path)); }
  // What it ends with, once all its threads are gone.
  std::int32_t End();

  // The numbered steps of the host table's pass in the last run.
  [[nodiscard]] std::vector<int> PassSteps() const;
  // But for those of single addresses, which may be missing on a busy machine.
  [[nodiscard]] std::vector<int> Passes() const;
  // Until it has such a step. False after half a minute.
  [[nodiscard]] bool AwaitPassStep(int step) const;
  // All requests to the addresses, or those of a method, in their order: "HEAD1 HEAD2 GET1". A HEAD
  // that was given up may be missing, or be late.
  [[nodiscard]] std::string Requests(const std::string& method = "");
  [[nodiscard]] int RequestsTo(std::size_t index, const std::string& method = "GET");
  // Connections that each address has accepted; -1 for one that is closed. Waits until nothing
  // more is under way.
  [[nodiscard]] std::vector<int> Connections();
  // How many connections of the last run each address has given bodies over, as the log has it.
  [[nodiscard]] std::vector<int> Bodies();
  // What the host table knows of the name, as the library looks for it.
  [[nodiscard]] DownHostMgr::AddressMap Table() const {
    return DownHostMgr::Shared().Addresses(m_hosts.wide_name());
  }
  // Whether the table has just these addresses, by their index, in use or not.
  [[nodiscard]] bool TableHas(const std::vector<std::size_t>& indexes) const;

 private:
  Cdn m_hosts;
};

// Whose votes depend on the limits of 6 and 10 ms: the log says which addresses answered.
class HostScenario : public testing::Test {
 protected:
  using Steps = std::vector<int>;
  using Action = std::function<void(HostScene&)>;

  // In the place of how many answer: nobody is to, but every address has been asked in time.
  static constexpr int kOnlyAsked = -1;

  // A whole run: `serve` tells the servers what to do, `meanwhile` is called when it has begun.
  // Again with another name while fewer than `answers` addresses told their length in time.
  HostScene& Run(int addresses, int answers, const Action& serve, const Action& meanwhile = {});
  // The same on scenes of the test's making.
  HostScene& RunOn(const std::function<void(std::optional<HostScene>&)>& make, int answers,
                   const Action& serve, const Action& meanwhile = {});
  // Before the job begins, when it is to begin at another URL than the name's "/f".
  void BeginAt(std::function<std::wstring(HostScene&)> url) { m_url = std::move(url); }

  std::int32_t m_result = kNothingTold;

 private:
  static bool WasInTime(HostScene& scene, int answers);

  std::function<std::wstring(HostScene&)> m_url;
  std::optional<HostScene> m_scene;
};

}  // namespace Tarnlo::test
