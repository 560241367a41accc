// Many threads do anything to any task, in no order. What a call answers cannot be known then, but
// what has been stopped must be silent, and at the end nothing may be left.
#include <gtest/gtest.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <random>
#include <string>

#include "manager/downloader_manager.h"
#include "tests/manager/silent_callback.h"
#include "tests/manager/storm.h"
#include "tests/support/fault_server.h"
#include "tests/support/temp_folder.h"

namespace Tarnlo {
namespace {

// Whether a task may tell anything: not after a call that stops it, unless another one that may
// start it was under way meanwhile or came later.
//
// Threads: any.
class Silence {
 public:
  void BeginStart() {
    const std::lock_guard guard(m_mutex);
    ++m_starting;
    Touch();
  }
  void EndStart() {
    const std::lock_guard guard(m_mutex);
    --m_starting;
    Touch();
  }
  // What to hand to `EndStop` when the call that stops is back.
  int BeginStop() {
    const std::lock_guard guard(m_mutex);
    return m_touches;
  }
  void EndStop(int begun) {
    const std::lock_guard guard(m_mutex);
    if (m_starting == 0 && m_touches == begun) m_silent = true;
  }
  void Told() {
    const std::lock_guard guard(m_mutex);
    EXPECT_FALSE(m_silent) << "told though stopped";
  }

 private:
  void Touch() {
    ++m_touches;
    m_silent = false;
  }

  std::mutex m_mutex;
  int m_starting = 0;
  int m_touches = 0;
  bool m_silent = true;
};

class Silences final : public IDownloaderManagerCallBack {
 public:
  Silence& Of(std::int32_t id) { return m_silences.at(static_cast<std::size_t>(id)); }

  void OnTaskMessage(std::int32_t id, const std::wstring&) override { Of(id).Told(); }
  void OnTaskValue(std::int32_t id, std::int64_t) override { Of(id).Told(); }
  void OnTaskProgress(std::int32_t id, std::int64_t, std::int64_t, std::int32_t) override {
    Of(id).Told();
  }
  void OnTaskComplete(std::int32_t id, std::int32_t) override { Of(id).Told(); }
  void OnTaskFail(std::int32_t id, NsResultEnum) override { Of(id).Told(); }
  void OnTaskStage(std::int32_t id, std::int32_t, std::int32_t, std::int64_t) override {
    Of(id).Told();
  }
  void OnTaskStart(std::int32_t id) override { Of(id).Told(); }

 private:
  std::array<Silence, test::kStormIds + 1> m_silences;
};

class FreeStorm {
 public:
  FreeStorm() {
    test::ServeStorm(m_server);
    m_manager.SetCallBack(&m_silences);
  }

  void Rage(int operations) {
    test::Rage(operations, [this](std::mt19937& random, int) { Act(random); });
  }
  // Everything is stopped, and silent from then on.
  void Settle() {
    for (std::int32_t id = 1; id <= test::kStormIds; ++id) {
      Stop(id, [&] { return m_manager.CancelTask(id); });
    }
    EXPECT_EQ(m_manager.GetTaskCount(), 0);
  }

 private:
  void Act(std::mt19937& random) {
    const auto id = static_cast<std::int32_t>(random() % test::kStormIds) + 1;
    const auto what = random() % 100;
    if (what < 40) {
      const std::wstring url = m_server.Url(what < 30 ? test::StormPathOf(id) : "/missing");
      const std::wstring folder = m_folder.path();
      Start(id, [&] {
        EXPECT_EQ(m_manager.AddTask(url.c_str(), folder.c_str(), L"", id, L"", L"", 0), id);
      });
    } else if (what < 55) {
      Start(id, [&] { m_manager.ContinueTask(id); });  // whether it is there is not known
    } else if (what < 70) {
      Stop(id, [&] { return m_manager.PauseTask(id); });
    } else if (what < 85) {
      Stop(id, [&] { return m_manager.CancelTask(id); });
    } else if (what < 86) {
      CancelAll();
    } else {
      Look(id);
    }
  }
  template <typename Call>
  void Start(std::int32_t id, Call call) {
    m_silences.Of(id).BeginStart();
    call();
    m_silences.Of(id).EndStart();
  }
  template <typename Call>
  void Stop(std::int32_t id, Call call) {
    const int begun = m_silences.Of(id).BeginStop();
    EXPECT_EQ(call(), 1);
    m_silences.Of(id).EndStop(begun);
  }
  void CancelAll() {
    std::array<int, test::kStormIds + 1> begun{};
    for (std::int32_t id = 1; id <= test::kStormIds; ++id) {
      begun.at(static_cast<std::size_t>(id)) = m_silences.Of(id).BeginStop();
    }
    if (m_manager.CancelAllTasks() == 0) return;  // nothing was done
    for (std::int32_t id = 1; id <= test::kStormIds; ++id) {
      m_silences.Of(id).EndStop(begun.at(static_cast<std::size_t>(id)));
    }
  }
  void Look(std::int32_t id) {
    TaskProgressInfo info{};
    if (m_manager.GetTaskProgress(id, &info) == 0 || info.total < 0) return;
    EXPECT_EQ(info.id, id);
    EXPECT_EQ(info.total, test::kStormSize);
  }

  test::TempFolder m_folder;
  test::FaultServer m_server;
  Silences m_silences;
  DownloaderManager m_manager;
};

TEST(FreeStormTest, StoppedTasksAreSilentAndNothingIsLeft) {
  test::ExpectStormLeavesNothing<FreeStorm>();
}

}  // namespace
}  // namespace Tarnlo
