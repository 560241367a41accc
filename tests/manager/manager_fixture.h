// A manager with a recording callback, a server and a folder.
#pragma once

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <string>

#include "manager/downloader_manager.h"
#include "support/os/clock.h"
#include "tests/manager/recording_callback.h"
#include "tests/support/fault_server.h"
#include "tests/support/gate.h"
#include "tests/support/process_usage.h"
#include "tests/support/temp_folder.h"

namespace Tarnlo::test {

// The side of a callback that a test holds.
inline void WaitAt(Gate& gate) {
  const std::atomic<bool> never{false};
  EXPECT_TRUE(gate.Pass(never));
}

class ManagerTest : public testing::Test {
 protected:
  ManagerTest() : m_manager(std::make_unique<DownloaderManager>()) {
    m_server.Serve("/f", kBody);
    m_server.Serve("/held", kBody).HoldingAnswer(m_gate);
    m_server.Serve("/stalled", kBody).StallingAfter(1000, m_gate);
    m_server.Serve("/stalled-too", kBody).StallingAfter(1000, m_gate);
    m_server.Serve("/slow", kBody).Trickling(400'000);
    m_manager->SetCallBack(&m_callback);
  }

  std::int32_t Add(std::int32_t id, const std::string& path) {
    return m_manager->AddTask(m_server.Url(path).c_str(), m_folder.path().c_str(), L"", id, L"",
                              L"", 0);
  }

  // Until another thread's operation has the manager.
  void AwaitOperation() {
    TaskProgressInfo info;
    while (m_manager->GetTaskProgress(7, &info) == 1) {
    }
  }

  static constexpr std::int64_t kSize = 600'000;
  const Body kBody{kSize};
  Gate m_gate;
  TempFolder m_folder;
  FaultServer m_server;
  RecordingCallBack m_callback;
  const int m_threads = RunningThreads();        // before any task
  std::unique_ptr<DownloaderManager> m_manager;  // its end stops what still runs
};

}  // namespace Tarnlo::test
