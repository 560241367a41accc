#include "tests/engine/host_fixture.h"

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <stdexcept>
#include <string_view>
#include <thread>
#include <utility>

#include "tests/support/hosts_file.h"
#include "tests/support/repeat_until.h"

namespace Tarnlo::test {

std::string UnusedName(int addresses) {
  static int number = 0;
  std::string name = "scene" + std::to_string(++number) + ".tarnlo.test";
  EXPECT_TRUE(AddHost(name, CdnAddresses(addresses)));
  return name;
}

HostScene::HostScene(int addresses, const std::string& name, std::uint16_t port)
    : m_hosts(addresses, name, port) {
  EXPECT_TRUE(m_hosts.valid());
}

std::int32_t HostScene::End() {
  const std::int32_t result = AwaitResult();
  AwaitRunEnd();
  return result;
}

std::vector<int> HostScene::PassSteps() const {
  constexpr std::string_view kPrefix = "[INFO] DownHostMgr InitHost ";
  std::vector<int> steps;
  for (const std::string& line : JobThreadLines()) {
    if (line.starts_with(kPrefix)) steps.push_back(std::atoi(line.c_str() + kPrefix.size()));
  }
  return steps;
}

std::vector<int> HostScene::Passes() const {
  std::vector<int> steps = PassSteps();
  std::erase_if(steps, [](int step) { return step >= 4 && step <= 6; });
  return steps;
}

bool HostScene::AwaitPassStep(int step) const {
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(30);
  while (std::ranges::count(PassSteps(), step) == 0) {
    if (std::chrono::steady_clock::now() > end) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
  return true;
}

std::string HostScene::Requests(const std::string& method) {
  std::vector<std::pair<int, std::string>> all;
  for (std::size_t i = 0; i < m_hosts.size(); ++i) {
    if (!m_hosts.IsOpen(i)) continue;
    for (const RecordedRequest& request : m_hosts[i].Requests()) {
      if (!method.empty() && request.method != method) continue;
      all.emplace_back(request.order, request.method + std::to_string(i + 1));
    }
  }
  std::ranges::sort(all);
  std::string text;
  for (const auto& [order, request] : all) text += (text.empty() ? "" : " ") + request;
  return text;
}

int HostScene::RequestsTo(std::size_t index, const std::string& method) {
  return static_cast<int>(
      std::ranges::count(m_hosts[index].Requests(), method, &RecordedRequest::method));
}

std::vector<int> HostScene::Connections() {
  std::vector<int> counts;
  for (std::size_t i = 0; i < m_hosts.size(); ++i) {
    if (!m_hosts.IsOpen(i)) {
      counts.push_back(-1);
      continue;
    }
    EXPECT_TRUE(m_hosts[i].AwaitIdle());
    counts.push_back(m_hosts[i].connections());
  }
  return counts;
}

std::vector<int> HostScene::Bodies() {
  std::vector<int> counts;
  for (std::size_t i = 0; i < m_hosts.size(); ++i) {
    counts.push_back(
        Log().Count("CDownloadBase RecvDataAndSaveToFile: " + os::DottedText(m_hosts.address(i))));
  }
  return counts;
}

bool HostScene::TableHas(const std::vector<std::size_t>& indexes) const {
  const DownHostMgr::AddressMap table = Table();
  return table.size() == indexes.size() && std::ranges::all_of(indexes, [&](std::size_t index) {
           return table.contains(m_hosts.address(index));
         });
}

HostScene& HostScenario::Run(int addresses, int answers, const Action& serve,
                             const Action& meanwhile) {
  return RunOn([=](std::optional<HostScene>& scene) { scene.emplace(addresses); }, answers, serve,
               meanwhile);
}

bool HostScenario::WasInTime(HostScene& scene, int answers) {
  if (answers != kOnlyAsked) return std::ranges::count(scene.PassSteps(), 6) >= answers;
  for (std::size_t i = 0; i < scene.Hosts().size(); ++i) {
    if (scene.RequestsTo(i, "HEAD") == 0) return false;
  }
  return true;
}

HostScene& HostScenario::RunOn(const std::function<void(std::optional<HostScene>&)>& make,
                               int answers, const Action& serve, const Action& meanwhile) {
  RepeatUntil([&] {
    m_scene.reset();
    make(m_scene);
    if (!m_scene) throw std::runtime_error("no scene was made");
    serve(*m_scene);
    EXPECT_TRUE(m_url ? m_scene->StartAt(m_url(*m_scene)) : m_scene->Begin());
    if (meanwhile) meanwhile(*m_scene);
    m_result = m_scene->End();
    return WasInTime(*m_scene, answers);
  });
  return *m_scene;
}

}  // namespace Tarnlo::test
