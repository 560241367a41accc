// A hundred tasks at once, from a real server.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "manager/downloader_manager.h"
#include "support/os/clock.h"
#include "support/os/thread.h"
#include "tests/support/process_usage.h"
#include "tests/support/temp_folder.h"

namespace Tarnlo {
namespace {

// Counts how the tasks end.
class Ends final : public IDownloaderManagerCallBack {
 public:
  std::atomic<int> complete{0};
  std::atomic<int> failed{0};
  void OnTaskMessage(std::int32_t, const std::wstring&) override {}
  void OnTaskValue(std::int32_t, std::int64_t) override {}
  void OnTaskProgress(std::int32_t, std::int64_t, std::int64_t, std::int32_t) override {}
  void OnTaskComplete(std::int32_t, std::int32_t) override { ++complete; }
  void OnTaskFail(std::int32_t, NsResultEnum) override { ++failed; }
  void OnTaskStage(std::int32_t, std::int32_t, std::int32_t, std::int64_t) override {}
  void OnTaskStart(std::int32_t) override {}
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
    m_url.assign(url.begin(), url.end());
    m_content = test::ReadFileBytes(std::wstring(file.begin(), file.end()));
  }
  std::wstring m_url;
  std::string m_content;
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
  for (std::int32_t id = 1; id <= kTasks; ++id) {
    EXPECT_TRUE(test::ReadFileBytes(folder_of(id) + L"\\one.bin") == m_content) << id;
  }
  std::printf("100 tasks at once: at most %d threads and %.1f MB\n", threads,
              static_cast<double>(test::Memory().peak) / 1e6);
}

}  // namespace
}  // namespace Tarnlo
