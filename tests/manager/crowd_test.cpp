// A hundred tasks at once, from a real server.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <sstream>
#include <string>

#include "manager/downloader_manager.h"
#include "support/os/clock.h"
#include "support/os/thread.h"
#include "tests/manager/silent_callback.h"
#include "tests/support/process_usage.h"
#include "tests/support/temp_folder.h"

namespace Tarnlo {
namespace {

// Counts how the tasks end.
class Ends final : public test::SilentCallBack {
 public:
  std::atomic<int> complete{0};
  std::atomic<int> failed{0};
  void OnTaskComplete(std::int32_t, std::int32_t) override { ++complete; }
  void OnTaskFail(std::int32_t, NsResultEnum) override { ++failed; }
};

std::string Environment(const char* name) {
  const char* value = std::getenv(name);
  return value == nullptr ? std::string() : std::string(value);
}

// The file as the server has it, and its address where each connection is slow.
class CrowdTest : public testing::Test {
 protected:
  CrowdTest() {
    const std::string url = Environment("TARNLO_NGINX_URL") + "/slow/one.bin";
    const std::string file = Environment("TARNLO_NGINX_ROOT") + "\\one.bin";
    const std::string log = Environment("TARNLO_NGINX_LOG");
    m_url.assign(url.begin(), url.end());
    m_content = test::ReadFileBytes(std::wstring(file.begin(), file.end()));
    m_log.assign(log.begin(), log.end());
    m_logged_before = test::ReadFileBytes(m_log).size();
  }

  // By its first byte, how often each of a task's six ranges was sent. What one connection takes
  // over from another begins elsewhere.
  [[nodiscard]] std::map<long long, int> RangesSent() const {
    const auto size = static_cast<long long>(m_content.size());
    std::map<long long, int> sent{{0, 0}};
    for (int i = 1; i < kConnections; ++i) sent[size / kConnections * i + size % kConnections] = 0;
    std::istringstream lines(test::ReadFileBytes(m_log).substr(m_logged_before));
    for (std::string line; std::getline(lines, line);) {
      long long begin = 0;
      long long last = 0;
      const std::size_t range = line.find(" 206 \"bytes=");
      if (range == std::string::npos ||
          std::sscanf(line.c_str() + range, " 206 \"bytes=%lld-%lld\"", &begin, &last) != 2) {
        continue;
      }
      const auto found = sent.find(begin);
      if (found != sent.end() && last > begin + 1) ++found->second;  // two bytes: a look at ranges
    }
    return sent;
  }
  // The server notes a request when it has ended. False after half a minute.
  [[nodiscard]] bool AwaitRangesSent(int times) const {
    for (int i = 0; i < 300; ++i) {
      const auto sent = RangesSent();
      if (std::ranges::all_of(sent, [&](const auto& range) { return range.second >= times; })) {
        return true;
      }
      os::SleepMs(100);
    }
    return false;
  }

  static constexpr int kConnections = 6;
  std::wstring m_url;
  std::string m_content;
  std::wstring m_log;
  std::size_t m_logged_before = 0;
};

TEST_F(CrowdTest, AHundredTasksAtOnceAllComplete) {
  constexpr std::int32_t kTasks = 100;
  ASSERT_FALSE(m_content.empty());
  test::TempFolder folder;
  const auto folder_of = [&folder](std::int32_t id) {
    return folder.MakeFolder(std::to_wstring(id));
  };
  Ends ends;
  DownloaderManager manager;
  manager.SetCallBack(&ends);
  for (std::int32_t id = 1; id <= kTasks; ++id) {
    ASSERT_EQ(manager.AddTask(m_url.c_str(), folder_of(id).c_str(), L"", id, L"", L"", 0), id);
  }
  int threads = 0;
  while (ends.complete + ends.failed < kTasks) {
    threads = std::max(threads, test::RunningThreads());
    os::SleepMs(50);
  }
  EXPECT_EQ(ends.failed, 0);
  EXPECT_TRUE(AwaitRangesSent(kTasks)) << testing::PrintToString(RangesSent());
  for (std::int32_t id = 1; id <= kTasks; ++id) {
    EXPECT_TRUE(test::ReadFileBytes(folder_of(id) + L"\\one.bin") == m_content) << id;
  }
  std::printf("100 tasks at once: at most %d threads and %.1f MB\n", threads,
              static_cast<double>(test::Memory().peak) / 1e6);
}

}  // namespace
}  // namespace Tarnlo
