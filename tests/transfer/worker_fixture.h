// A worker with a server to talk to and a file to write into.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdint>
#include <filesystem>
#include <limits>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include "support/os/clock.h"
#include "support/os/file.h"
#include "support/os/thread.h"
#include "support/os/wait.h"
#include "support/sized_file.h"
#include "tests/support/body.h"
#include "tests/support/fault_server.h"
#include "tests/support/recording_observer.h"
#include "tests/support/system.h"
#include "tests/support/temp_folder.h"
#include "tests/support/test_log.h"
#include "transfer/download_http.h"

namespace Tarnlo::test {

inline constexpr std::uint32_t kStopLimitMs = 1000;

// What the worker's own operations are when a test calls them.
class TestWorker : public CDownloadHttp {
 public:
  ~TestWorker() override { Stop(); }

  using CDownloadHttp::BuildProbeRequest;
  using CDownloadHttp::BuildRangeRequest;
  using CDownloadHttp::OpenTargetFile;
  using CDownloadHttp::ParseRedirectResponse;
  using CDownloadHttp::ParseResponseString;
  using CDownloadHttp::ProbeRangeSupport;
  using CDownloadHttp::RequestHttpData;
  using CDownloadHttp::SendRequest;
  using CDownloadHttp::WriteToFile;

  [[nodiscard]] const UrlRecord& url() const { return m_url; }
  [[nodiscard]] const std::wstring& referer() const { return m_strReferer; }
  CCustomizeSocket& connection() { return m_Socket; }
  RangeState& state() { return m_range; }
};

class TestOwner : public IWorkerOwner {
 public:
  explicit TestOwner(bool notifying) : m_notifying(notifying) {}
  [[nodiscard]] bool IsNotifying() const override { return m_notifying; }

 private:
  const bool m_notifying;
};

class WorkerTest : public testing::Test {
 protected:
  using Progress = std::tuple<std::int32_t, std::int64_t, std::int64_t>;
  using Lines = std::vector<std::string>;

  WorkerTest() {
    StartTestLog();
    m_forced_ends = os::ForcedEnds();
  }
  ~WorkerTest() override { EXPECT_EQ(os::ForcedEnds(), m_forced_ends); }

  [[nodiscard]] std::wstring Target() const { return SystemPath(m_path); }
  void MakeTarget(std::int64_t size) {
    ASSERT_EQ(CreateSizedFile(Target(), size), SizedFileResult::kDone);
  }

  WorkerSetup MakeSetup(std::int32_t index = 0) {
    WorkerSetup setup;
    setup.index = index;
    setup.task_id = 7;
    setup.observer = &m_observer;
    setup.progress = &RecordProgress;
    setup.progress_context = this;
    setup.file_path = Target();
    return setup;
  }
  // Ready to download from the server's path.
  void Prepare(TestWorker& worker, const std::string& path, std::int32_t index = 0) {
    worker.Configure(MakeSetup(index));
    ASSERT_TRUE(worker.SetUrl(m_server.Url(path)));
  }

  // Runs the worker's thread to its end; the thread's log lines.
  Lines Run(TestWorker& worker, std::int64_t start, std::int64_t length,
            std::int64_t received = 0) {
    const LogReader log;
    EXPECT_TRUE(worker.Download(start, length, received));
    const std::uint32_t thread = worker.thread_id();
    AwaitEnd(worker);
    return log.LinesOf(thread);
  }
  static void AwaitEnd(const TestWorker& worker) {
    const std::array thread{worker.thread()};
    ASSERT_TRUE(os::WaitForAny(thread, 60'000).signalled.has_value());
  }
  // Until it is so; false when the worker ends first, or after half a minute.
  template <typename Condition>
  static bool AwaitWhileRunning(const TestWorker& worker, Condition condition) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    while (worker.IsThreadRunning() && std::chrono::steady_clock::now() < end) {
      if (condition()) return true;
      std::this_thread::yield();
    }
    return condition();
  }
  // Stops the worker, which must not take half of what it is given.
  static void StopPromptly(TestWorker& worker) {
    const std::uint32_t begin = os::TickMs();
    worker.Stop();
    EXPECT_LT(os::TickMs() - begin, kStopLimitMs / 2);
  }

  std::vector<Progress> ProgressCalls() const { return m_progress; }

  FaultServer m_server;
  RecordingObserver m_observer;
  const TempFolder m_folder;
  const std::filesystem::path m_path = LocalPath(m_folder.File(L"target.bin"));

 private:
  // On the worker's thread; read after its end.
  static void RecordProgress(std::int32_t index, std::int64_t received, std::int64_t delta,
                             void* context) {
    static_cast<WorkerTest*>(context)->m_progress.emplace_back(index, received, delta);
  }

  std::vector<Progress> m_progress;
  std::uint32_t m_forced_ends = 0;
};

}  // namespace Tarnlo::test
