// Many threads do random things to many tasks; what each call answers and each report says is known
// beforehand.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <mutex>
#include <optional>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "manager/downloader_manager.h"
#include "support/os/clock.h"
#include "support/os/thread.h"
#include "tests/manager/silent_callback.h"
#include "tests/manager/usage.h"
#include "tests/support/fault_server.h"
#include "tests/support/process_usage.h"
#include "tests/support/temp_folder.h"

namespace Tarnlo {
namespace {

constexpr int kThreads = 8;
constexpr int kIdsPerThread = 4;
constexpr int kSharedIds = 8;  // that all threads work on, the last ones
constexpr int kIds = kThreads * kIdsPerThread + kSharedIds;
constexpr int kOperations = 2000;
constexpr std::int64_t kSize = 300'000;
constexpr std::int64_t kBytesPerSecond = 100'000;  // of one connection

std::string PathOf(std::int32_t id) {
  std::string path = "/t";
  return path += std::to_string(id);
}

enum class Kind { kNone, kGood, kMissing, kRefused };  // none: not in the table

// What a task has told since it was last started, and whether it may tell anything at all.
//
// Threads: any.
class Witness {
 public:
  // A task of that kind is about to take the place of the one that is there, if any, which may go
  // on telling until the new one starts.
  void Replace(Kind next) {
    const std::lock_guard guard(m_mutex);
    m_open = true;
    m_next = next;
    m_next_may_run = false;
  }
  // The old one is gone.
  void Replaced() {
    const std::lock_guard guard(m_mutex);
    if (m_next) m_kind = *m_next;
    m_may_start_again = m_next && m_next_may_run;  // who started was the one or the other
    if (m_next && !m_next_may_run) m_running = false;
    m_next.reset();
  }
  // Continued.
  void Open() {
    const std::lock_guard guard(m_mutex);
    m_open = true;
  }
  // Whoever stopped the task has had the answer: nothing may come any more.
  void Close() {
    const std::lock_guard guard(m_mutex);
    m_open = false;
    m_running = false;
    m_may_start_again = false;
  }

  void Start() {
    const std::lock_guard guard(m_mutex);
    Expect(m_open, "started though stopped");
    if (m_running && m_next) {  // the new one, for the old one had started
      m_kind = *m_next;
      m_next.reset();
    } else {
      Expect(!m_running || m_may_start_again, "started while it runs");
      m_may_start_again = false;
      m_next_may_run = true;
    }
    m_running = true;
    m_downloaded = 0;
  }
  void Progress(std::int64_t downloaded, std::int64_t total) {
    const std::lock_guard guard(m_mutex);
    Expect(m_open, "progress though stopped");
    Expect(m_running, "progress before the start or after the end");
    Expect(total == kSize, "another size");
    Expect(downloaded >= m_downloaded && downloaded <= kSize, "progress out of order");
    m_downloaded = downloaded;
  }
  void End(std::int32_t result) {
    const std::lock_guard guard(m_mutex);
    Expect(m_open, "ended though stopped");
    Expect(m_running, "ended without a start, or twice");
    Expect(result == ResultOf(m_kind) || (m_next && result == ResultOf(*m_next)),
           "ended in another way");
    m_running = false;
    ++m_ends;
  }
  [[nodiscard]] int ends() const { return m_ends; }

 private:
  static void Expect(bool holds, const char* otherwise) { EXPECT_TRUE(holds) << otherwise; }
  static std::int32_t ResultOf(Kind kind) {
    return kind == Kind::kGood ? kResultSuccess : kResultNoRemoteInfo;
  }

  std::mutex m_mutex;
  bool m_open = false;
  Kind m_kind = Kind::kNone;
  std::optional<Kind> m_next;  // while it takes the old one's place and is not known to tell
  bool m_next_may_run = false;
  bool m_may_start_again = false;
  bool m_running = false;
  std::int64_t m_downloaded = 0;
  std::atomic<int> m_ends{0};
};

class Witnesses final : public test::SilentCallBack {
 public:
  Witness& Of(std::int32_t id) { return m_witnesses.at(static_cast<std::size_t>(id)); }

  void OnTaskValue(std::int32_t, std::int64_t value) override { EXPECT_EQ(value, kSize); }
  void OnTaskProgress(std::int32_t id, std::int64_t downloaded, std::int64_t total,
                      std::int32_t) override {
    Of(id).Progress(downloaded, total);
  }
  void OnTaskComplete(std::int32_t id, std::int32_t) override { Of(id).End(kResultSuccess); }
  void OnTaskFail(std::int32_t id, NsResultEnum result) override { Of(id).End(result); }
  void OnTaskStart(std::int32_t id) override { Of(id).Start(); }

 private:
  std::array<Witness, kIds + 1> m_witnesses;
};

// One task as it must be. Threads: whoever holds its mutex calls for it, and knows the answer.
struct Model {
  std::mutex mutex;
  Kind kind = Kind::kNone;
  bool stopped = false;  // and not continued since
};

class Storm {
 public:
  Storm() {
    for (std::int32_t id = 1; id <= kIds; ++id) {
      m_server.Serve(PathOf(id), test::Body(kSize)).Trickling(kBytesPerSecond);
    }
    m_manager.SetCallBack(&m_witnesses);
  }

  void Rage(int operations) {
    std::vector<std::jthread> threads;
    for (int i = 0; i < kThreads; ++i) {
      threads.emplace_back([this, i, operations] { Run(i, operations / kThreads); });
    }
  }
  // Lets what is left come to its end and looks at it.
  void Settle() {
    std::array<int, kIds + 1> ends{};
    for (std::int32_t id = 1; id <= kIds; ++id) {
      Model& model = m_models.at(static_cast<std::size_t>(id));
      Pause(id, model);
      ends.at(static_cast<std::size_t>(id)) = m_witnesses.Of(id).ends();
      Continue(id, model);
    }
    for (std::int32_t id = 1; id <= kIds; ++id) {
      const Kind kind = m_models.at(static_cast<std::size_t>(id)).kind;
      if (kind != Kind::kGood && kind != Kind::kMissing) continue;
      while (m_witnesses.Of(id).ends() == ends.at(static_cast<std::size_t>(id))) os::SleepMs(5);
      if (kind != Kind::kGood) continue;
      EXPECT_EQ(test::FileDifference(m_folder.File(NameOf(id)), test::Body(kSize)), "");
    }
  }

 private:
  static std::wstring NameOf(std::int32_t id) {
    std::wstring name = L"t";
    return name += std::to_wstring(id);
  }

  // One of the thread's own or of those that all share.
  static std::int32_t Draw(std::mt19937& random, int thread) {
    const auto below = [&random](int count) {
      return static_cast<std::int32_t>(random() % static_cast<unsigned>(count));
    };
    return 1 + (below(2) == 0 ? thread * kIdsPerThread + below(kIdsPerThread)
                              : kThreads * kIdsPerThread + below(kSharedIds));
  }
  void Run(int thread, int operations) {
    std::mt19937 random(static_cast<unsigned>(thread) + 1);
    for (int i = 0; i < operations; ++i) {
      const std::int32_t id = Draw(random, thread);
      Model& model = m_models.at(static_cast<std::size_t>(id));
      const bool cancels = random() % 2 == 0;
      const std::lock_guard guard(model.mutex);
      switch (random() % 12) {
        case 0:
        case 1:
        case 2:
          Add(id, model, Kind::kGood, cancels);
          break;
        case 3:
          Add(id, model, Kind::kMissing, cancels);
          break;
        case 4:
          AddRefused(id, model, cancels);
          break;
        case 5:
        case 6:
          Pause(id, model);
          break;
        case 7:
        case 8:
          Continue(id, model);
          break;
        case 9:
          Cancel(id, model);
          break;
        default:
          Look(static_cast<std::int32_t>(random() % kIds) + 1);
          break;
      }
    }
  }

  std::int32_t AddUrl(std::int32_t id, const std::wstring& url) {
    return m_manager.AddTask(url.c_str(), m_folder.path().c_str(), L"", id, L"", L"", 0);
  }
  void Add(std::int32_t id, Model& model, Kind kind, bool cancels) {
    if (cancels) Cancel(id, model);
    Witness& witness = m_witnesses.Of(id);
    witness.Replace(kind);
    EXPECT_EQ(AddUrl(id, m_server.Url(kind == Kind::kGood ? PathOf(id) : "/missing")), id);
    witness.Replaced();
    model.kind = kind;
    model.stopped = false;
  }
  // An empty URL takes the old task's place and is not started; one that is too long does nothing.
  void AddRefused(std::int32_t id, Model& model, bool empty) {
    EXPECT_EQ(AddUrl(id, empty ? std::wstring() : std::wstring(2048, L'u')), -1);
    if (!empty) return;
    m_witnesses.Of(id).Close();
    model.kind = Kind::kRefused;
    model.stopped = false;
  }
  void Pause(std::int32_t id, Model& model) {
    EXPECT_EQ(m_manager.PauseTask(id), 1);
    m_witnesses.Of(id).Close();
    model.stopped = true;
  }
  void Continue(std::int32_t id, Model& model) {
    const bool can_run = model.kind == Kind::kGood || model.kind == Kind::kMissing;
    if (can_run) m_witnesses.Of(id).Open();
    // A refused task keeps its stop event and counts as running, until it has been stopped.
    const bool counts_as_running = model.kind == Kind::kRefused && !model.stopped;
    EXPECT_EQ(m_manager.ContinueTask(id), can_run || counts_as_running ? 1 : 0);
    model.stopped = false;
  }
  void Cancel(std::int32_t id, Model& model) {
    EXPECT_EQ(m_manager.CancelTask(id), 1);
    m_witnesses.Of(id).Close();
    model.kind = Kind::kNone;
    model.stopped = false;
  }
  void Look(std::int32_t id) {
    TaskProgressInfo info{};
    if (m_manager.GetTaskProgress(id, &info) == 0 || info.total < 0) return;
    EXPECT_EQ(info.id, id);
    EXPECT_EQ(info.total, kSize);
    EXPECT_LE(info.downloaded, kSize);
    EXPECT_TRUE(std::wstring(info.url).ends_with(NameOf(id)));
  }

  test::TempFolder m_folder;
  test::FaultServer m_server;
  Witnesses m_witnesses;
  std::array<Model, kIds + 1> m_models;
  DownloaderManager m_manager;
};

TEST(StormTest, EightThreadsOverFortyTasksFindEverythingAsItMustBe) {
  const int threads = test::RunningThreads();
  {
    Storm first;  // what is made once and kept
    first.Rage(40);
    first.Settle();
  }
  while (test::RunningThreads() > threads) os::SleepMs(5);
  const test::Usage before;
  const std::uint32_t forced = os::ForcedEnds();
  {
    Storm storm;
    storm.Rage(kOperations);
    storm.Settle();
  }
  const test::Usage after = test::AwaitUsageOf(before);
  EXPECT_EQ(os::ForcedEnds(), forced);
  EXPECT_LE(after.threads, before.threads);
  EXPECT_LE(after.handles, before.handles);
  EXPECT_LE(after.allocations, before.allocations + 20);
}

}  // namespace
}  // namespace Tarnlo
