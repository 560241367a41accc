// What a storm of operations rages over: a file a task, each slow enough to be stopped on its way.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/body.h"
#include "tests/support/fault_server.h"

namespace Tarnlo::test {

// Of the tasks 1 to kIds.
class ThrottledFiles {
 public:
  static constexpr std::int32_t kIds = 40;
  static constexpr std::int64_t kSize = 300'000;

  ThrottledFiles() {
    for (std::int32_t id = 1; id <= kIds; ++id) {
      m_server.Serve(PathOf(id), Body(kSize)).Trickling(100'000);  // a second, each connection
    }
  }
  [[nodiscard]] std::wstring UrlOf(std::int32_t id) const { return m_server.Url(PathOf(id)); }
  [[nodiscard]] std::wstring MissingUrl() const { return m_server.Url("/missing"); }

 private:
  static std::string PathOf(std::int32_t id) {
    std::string path = "/t";
    return path += std::to_string(id);
  }

  FaultServer m_server;
};

inline constexpr int kStormThreads = 8;

// Runs `act` in so many threads at once, each with its number.
inline void InStormThreads(const std::function<void(int thread)>& act) {
  std::vector<std::jthread> threads;
  for (int i = 0; i < kStormThreads; ++i) threads.emplace_back(act, i);
}

}  // namespace Tarnlo::test
