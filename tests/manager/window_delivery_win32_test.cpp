#include <gtest/gtest.h>
#include <windows.h>

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <regex>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "manager/downloader_manager.h"
#include "support/task_event.h"
#include "tests/manager/all_events.h"
#include "tests/manager/live_allocations.h"
#include "tests/manager/recording_callback.h"
#include "tests/support/fault_server.h"
#include "tests/support/temp_folder.h"

namespace Tarnlo {
namespace {

constexpr UINT kMessage = WM_APP + 7;
constexpr UINT kEnd = WM_APP + 8;

// A window of a host, on a thread of its own, which describes what it receives and frees it with
// the operators that the header names.
class HostWindow {
 public:
  explicit HostWindow(HWND parent) : m_thread([this, parent] { Run(parent); }) {
    std::unique_lock lock(m_mutex);
    m_changed.wait(lock, [this] { return m_made; });
  }
  HostWindow(const HostWindow&) = delete;
  HostWindow& operator=(const HostWindow&) = delete;
  ~HostWindow() { Close(); }

  [[nodiscard]] HWND handle() const { return m_window; }
  // Until one of that type has been received. The watchdog ends a wait in vain.
  void AwaitType(std::int32_t type) {
    std::unique_lock lock(m_mutex);
    m_changed.wait(lock, [&] { return m_types.contains(type); });
  }
  // What was received, once everything posted before has been.
  std::vector<std::string> Close() {
    if (m_thread.joinable()) {
      PostMessageW(m_window, kEnd, 0, 0);
      m_thread.join();
    }
    return m_received;
  }

 private:
  void Run(HWND parent) {
    HWND window =
        CreateWindowExW(0, L"STATIC", L"host", 0, 0, 0, 10, 10, parent, nullptr, nullptr, nullptr);
    {
      const std::lock_guard guard(m_mutex);
      m_window = window;
      m_made = true;
      m_changed.notify_all();
    }
    MSG message{};
    while (m_window != nullptr && GetMessageW(&message, nullptr, 0, 0) > 0) {
      if (message.message == kEnd) break;
      if (message.message == kMessage) Receive(message);
    }
    DestroyWindow(window);
  }
  void Receive(const MSG& message) {
    auto* event = reinterpret_cast<TaskEvent*>(message.lParam);
    std::string text = std::to_string(message.wParam) + ":";
    const auto add = [&text](std::int64_t number) {
      text.append(" ").append(std::to_string(number));
    };
    add(event->code);
    add(event->task_id);
    add(event->type);
    const auto payload = static_cast<std::intptr_t>(event->payload);
    if (event->type == kEventRemoteName) {
      auto* name = reinterpret_cast<wchar_t*>(payload);
      text += ' ';
      for (const wchar_t* c = name; *c != L'\0'; ++c) text += static_cast<char>(*c);
      delete[] name;
    } else if (event->type == kEventProgress) {
      auto* progress = reinterpret_cast<TaskProgress*>(payload);
      add(progress->task_id);
      add(progress->total);
      add(progress->downloaded);
      add(progress->speed);
      delete progress;
    } else {
      add(event->payload);
    }
    const std::int32_t type = event->type;
    delete event;
    m_received.push_back(text);
    const std::lock_guard guard(m_mutex);
    m_types.insert(type);
    m_changed.notify_all();
  }

  std::mutex m_mutex;
  std::condition_variable m_changed;
  bool m_made = false;
  HWND m_window = nullptr;
  std::set<std::int32_t> m_types;       // received so far
  std::vector<std::string> m_received;  // by the thread, until it is joined
  std::thread m_thread;
};

const std::vector<std::string> kAllTypes = {
    "0: -1 7 0 setup.exe", "0: -1 7 1 5000000000", "0: -1 7 2 11", "0: -1 7 3 7 1000 400 2000",
    "0: 3 7 4 100",        "0: 3 7 5 60",          "0: 3 7 6 20",  "0: -1 7 7 0"};

class WindowDeliveryTest : public testing::TestWithParam<bool> {
 protected:
  HostWindow m_window{GetParam() ? HWND_MESSAGE : nullptr};
  test::RecordingCallBack m_callback;
  DownloaderManager m_manager;
};

TEST_P(WindowDeliveryTest, EveryTypeArrivesAsOneMessageThatTheWindowOwns) {
  ASSERT_NE(m_window.handle(), nullptr);
  m_manager.SetNotifyWindow(m_window.handle(), kMessage);
  test::SendAllTypes(m_manager, kResultMd5Mismatch);
  EXPECT_EQ(m_window.Close(), kAllTypes);
}

TEST_P(WindowDeliveryTest, MessageParameterIsTheWordParameter) {
  ASSERT_NE(m_window.handle(), nullptr);
  m_manager.SetNotifyWindow(m_window.handle(), kMessage);
  m_manager.Notify(new TaskEvent{kWholeJob, 9, kEventStarted, 0}, 4711);
  EXPECT_EQ(m_window.Close(), std::vector<std::string>{"4711: -1 9 7 0"});
}

TEST_P(WindowDeliveryTest, LastOfWindowAndCallbackReceives) {
  ASSERT_NE(m_window.handle(), nullptr);
  m_manager.SetCallBack(&m_callback);
  m_manager.SetNotifyWindow(m_window.handle(), kMessage);
  SendEvent(&m_manager, kWholeJob, 1, kEventStarted, 0);
  m_manager.SetCallBack(&m_callback);
  SendEvent(&m_manager, kWholeJob, 2, kEventStarted, 0);
  m_manager.SetNotifyWindow(m_window.handle(), kMessage);
  SendEvent(&m_manager, kWholeJob, 3, kEventStarted, 0);
  EXPECT_EQ(m_callback.Reports(), std::vector<std::string>{"OnTaskStart 2"});
  EXPECT_EQ(m_window.Close(), (std::vector<std::string>{"0: -1 1 7 0", "0: -1 3 7 0"}));
}

TEST_P(WindowDeliveryTest, MessageNumberZeroDeliversNothing) {
  ASSERT_NE(m_window.handle(), nullptr);
  m_manager.SetCallBack(&m_callback);
  m_manager.SetNotifyWindow(m_window.handle(), 0);
  const long long before = test::LiveAllocations();
  test::SendAllTypes(m_manager);
  EXPECT_EQ(test::LiveAllocations(), before);
  EXPECT_EQ(m_callback.Reports(), std::vector<std::string>{});
  EXPECT_EQ(m_window.Close(), std::vector<std::string>{});
}

// Each event must reach one of the two, whole, while the two are exchanged for each other.
TEST_P(WindowDeliveryTest, SwitchWhileEventsAreSentLosesAndDoublesNone) {
  ASSERT_NE(m_window.handle(), nullptr);
  constexpr int kEvents = 4000;
  m_manager.SetCallBack(&m_callback);
  std::atomic<bool> sending{true};
  std::jthread sender([&] {
    for (int i = 0; i < kEvents; ++i) SendEvent(&m_manager, kWholeJob, i, kEventStarted, 0);
    sending = false;
  });
  while (sending) {
    m_manager.SetNotifyWindow(m_window.handle(), kMessage);
    m_manager.SetCallBack(&m_callback);
  }
  sender.join();
  const std::size_t by_window = m_window.Close().size();
  EXPECT_EQ(by_window + m_callback.Reports().size(), static_cast<std::size_t>(kEvents));
}

// A whole task: the window is told everything, in order, and nothing of a type that there is not.
TEST_P(WindowDeliveryTest, TaskIsToldToTheWindowFromStartToEnd) {
  ASSERT_NE(m_window.handle(), nullptr);
  const test::TempFolder folder;
  test::FaultServer server;
  server.Serve("/f", test::Body(600'000));
  m_manager.SetCallBack(&m_callback);
  m_manager.SetNotifyWindow(m_window.handle(), kMessage);
  ASSERT_EQ(m_manager.AddTask(server.Url("/f").c_str(), folder.path().c_str(), L"", 7, L"", L"", 0),
            7);
  m_window.AwaitType(kEventFinished);
  const std::vector<std::string> received = m_window.Close();
  EXPECT_EQ(received.front(), "0: -1 7 7 0");
  EXPECT_EQ(received.back(), "0: -1 7 2 0");
  for (const char* once : {"0: -1 7 0 f", "0: -1 7 1 600000", "0: -1 7 2 0", "0: -1 7 7 0"}) {
    EXPECT_EQ(std::count(received.begin(), received.end(), once), 1) << once;
  }
  for (const std::string& event : received) {
    EXPECT_TRUE(std::regex_match(event, std::regex("0: (-1 7 [01237] .*|[0-5] 7 [456] .*)")))
        << event;
  }
  EXPECT_EQ(m_callback.Reports(), std::vector<std::string>{});
}

INSTANTIATE_TEST_SUITE_P(Windows, WindowDeliveryTest, testing::Bool(),
                         [](const testing::TestParamInfo<bool>& parameter) {
                           return parameter.param ? "MessageOnly" : "TopLevel";
                         });

}  // namespace
}  // namespace Tarnlo
