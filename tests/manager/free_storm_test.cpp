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
#include "tests/manager/throttled_files.h"
#include "tests/manager/usage.h"
#include "tests/support/temp_folder.h"

namespace Tarnlo {
namespace {

constexpr std::int32_t kIds = test::ThrottledFiles::kIds;

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
  std::array<Silence, kIds + 1> m_silences;
};

class FreeStorm {
 public:
  FreeStorm() { m_manager.SetCallBack(&m_silences); }

  void Rage(int operations) {
    test::InStormThreads([this, operations](int thread) {
      std::mt19937 random(static_cast<unsigned>(thread) + 1);
      for (int done = 0; done < operations / test::kStormThreads; ++done) Act(random);
    });
  }
  // Everything is stopped, and silent from then on.
  void End() {
    for (std::int32_t id = 1; id <= kIds; ++id) {
      Stop(id, [&] { return m_manager.CancelTask(id); });
    }
    EXPECT_EQ(m_manager.GetTaskCount(), 0);
  }

 private:
  void Act(std::mt19937& random) {
    const auto id = static_cast<std::int32_t>(random() % kIds) + 1;
    const auto what = random() % 100;
    if (what < 40) {
      const std::wstring url = what < 30 ? m_files.UrlOf(id) : m_files.MissingUrl();
      const std::wstring folder = m_folder.path();
      Start(id, [&] {
        return m_manager.AddTask(url.c_str(), folder.c_str(), L"", id, L"", L"", 0) != -1;
      });
    } else if (what < 55) {
      Start(id, [&] { return m_manager.ContinueTask(id) >= 0; });
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
    EXPECT_TRUE(call());
    m_silences.Of(id).EndStart();
  }
  template <typename Call>
  void Stop(std::int32_t id, Call call) {
    const int begun = m_silences.Of(id).BeginStop();
    EXPECT_EQ(call(), 1);
    m_silences.Of(id).EndStop(begun);
  }
  void CancelAll() {
    std::array<int, kIds + 1> begun{};
    for (std::int32_t id = 1; id <= kIds; ++id) {
      begun.at(static_cast<std::size_t>(id)) = m_silences.Of(id).BeginStop();
    }
    if (m_manager.CancelAllTasks() == 0) return;  // nothing was done
    for (std::int32_t id = 1; id <= kIds; ++id) {
      m_silences.Of(id).EndStop(begun.at(static_cast<std::size_t>(id)));
    }
  }
  void Look(std::int32_t id) {
    TaskProgressInfo info{};
    if (m_manager.GetTaskProgress(id, &info) == 0 || info.total < 0) return;
    EXPECT_EQ(info.id, id);
    EXPECT_EQ(info.total, test::ThrottledFiles::kSize);
  }

  test::TempFolder m_folder;
  test::ThrottledFiles m_files;
  Silences m_silences;
  DownloaderManager m_manager;
};

TEST(FreeStormTest, StoppedTasksAreSilentAndNothingIsLeft) {
  test::ExpectNothingIsLeftBy(
      [](int operations) {
        FreeStorm storm;
        storm.Rage(operations);
        storm.End();
      },
      80, 2000);
}

}  // namespace
}  // namespace Tarnlo
