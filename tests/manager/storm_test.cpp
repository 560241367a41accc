// Many threads do random things to many tasks; what each call answers and each report says is known
// beforehand.
#include "tests/manager/storm.h"

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <optional>
#include <random>
#include <string>

#include "manager/downloader_manager.h"
#include "support/os/clock.h"
#include "tests/support/fault_server.h"
#include "tests/support/temp_folder.h"

namespace Tarnlo {
namespace {

constexpr std::int32_t kIdsPerThread = 4;
constexpr std::int32_t kSharedIds = 8;  // that all threads work on, the last ones
static_assert(test::kStormThreads * kIdsPerThread + kSharedIds == test::kStormIds);

enum class Kind { kNone, kGood, kMissing, kRefused };  // none: not in the table

// What a task has told since it was last started, and whether it may tell anything at all.
//
// Threads: any. The calls that announce what a host does are one thread's at a time.
class Witness {
 public:
  // A task of that kind is about to take the place of the one that is there, if any. The old one
  // may go on telling until it is stopped, and does not tell that it was.
  void Replace(Kind next) {
    const std::lock_guard guard(m_mutex);
    m_open = m_changing = true;
    m_next = next;
    ++m_starts;
    ++m_cut_short;
  }
  // The old one is gone: what comes from now on is the new one's.
  void Replaced() {
    const std::lock_guard guard(m_mutex);
    m_kind = *m_next;
    m_next.reset();
    m_changing = false;
  }
  // It is about to be continued, and may start again.
  void Continue() {
    const std::lock_guard guard(m_mutex);
    m_open = m_changing = true;
    ++m_starts;
  }
  void Continued() {
    const std::lock_guard guard(m_mutex);
    m_changing = false;
  }
  // Whoever stopped the task has had the answer: nothing may come any more.
  void Close() {
    const std::lock_guard guard(m_mutex);
    m_open = m_running = false;
    m_starts = m_cut_short = 0;
  }

  void Start() {
    const std::lock_guard guard(m_mutex);
    Expect(m_open, "started though stopped");
    Expect(m_starts-- > 0, "started though nobody asked for it");
    Expect(!m_running || m_cut_short-- > 0, "started while it runs");
    m_running = true;
    m_downloaded = 0;
  }
  // Anything between the start and the end.
  void Tell() {
    const std::lock_guard guard(m_mutex);
    ExpectRunning();
  }
  void Progress(std::int64_t downloaded, std::int64_t total) {
    const std::lock_guard guard(m_mutex);
    ExpectRunning();
    Expect(total == test::kStormSize, "another size");
    Expect(downloaded >= m_downloaded && downloaded <= test::kStormSize, "progress out of order");
    m_downloaded = downloaded;
  }
  void End(std::int32_t result) {
    const std::lock_guard guard(m_mutex);
    ExpectRunning();
    Expect(result == ResultOf(m_kind) || (m_next && result == ResultOf(*m_next)),
           "ended in another way");
    m_running = false;
    if (!m_changing) m_starts = m_cut_short = 0;
    ++m_ends;
  }
  [[nodiscard]] int ends() const { return m_ends; }

 private:
  static void Expect(bool holds, const char* otherwise) { EXPECT_TRUE(holds) << otherwise; }
  void ExpectRunning() const {
    Expect(m_open, "told though stopped");
    Expect(m_running, "told before the start or after the end");
  }
  static std::int32_t ResultOf(Kind kind) {
    return kind == Kind::kGood ? kResultSuccess : kResultNoRemoteInfo;
  }

  std::mutex m_mutex;
  bool m_open = false;
  bool m_changing = false;  // it is being replaced or continued
  Kind m_kind = Kind::kNone;
  std::optional<Kind> m_next;  // while it takes the old one's place
  int m_starts = 0;            // how many are still allowed
  int m_cut_short = 0;         // how many of the runs that have begun may not tell their end
  bool m_running = false;
  std::int64_t m_downloaded = 0;
  std::atomic<int> m_ends{0};
};

class Witnesses final : public IDownloaderManagerCallBack {
 public:
  Witness& Of(std::int32_t id) { return m_witnesses.at(static_cast<std::size_t>(id)); }

  void OnTaskMessage(std::int32_t id, const std::wstring&) override { Of(id).Tell(); }
  void OnTaskValue(std::int32_t id, std::int64_t value) override {
    Of(id).Tell();
    EXPECT_EQ(value, test::kStormSize);
  }
  void OnTaskProgress(std::int32_t id, std::int64_t downloaded, std::int64_t total,
                      std::int32_t) override {
    Of(id).Progress(downloaded, total);
  }
  void OnTaskComplete(std::int32_t id, std::int32_t) override { Of(id).End(kResultSuccess); }
  void OnTaskFail(std::int32_t id, NsResultEnum result) override { Of(id).End(result); }
  void OnTaskStage(std::int32_t id, std::int32_t, std::int32_t, std::int64_t) override {
    Of(id).Tell();
  }
  void OnTaskStart(std::int32_t id) override { Of(id).Start(); }

 private:
  std::array<Witness, test::kStormIds + 1> m_witnesses;
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
    test::ServeStorm(m_server);
    m_manager.SetCallBack(&m_witnesses);
  }

  void Rage(int operations) {
    test::Rage(operations, [this](std::mt19937& random, int thread) { Act(random, thread); });
  }
  // Lets what is left come to its end and looks at it.
  void Settle() {
    std::array<int, test::kStormIds + 1> ends{};
    for (std::int32_t id = 1; id <= test::kStormIds; ++id) {
      Model& model = m_models.at(static_cast<std::size_t>(id));
      Pause(id, model);
      ends.at(static_cast<std::size_t>(id)) = m_witnesses.Of(id).ends();
      Continue(id, model);
    }
    for (std::int32_t id = 1; id <= test::kStormIds; ++id) {
      TaskProgressInfo info{};
      const bool known = m_models.at(static_cast<std::size_t>(id)).kind != Kind::kNone;
      EXPECT_EQ(m_manager.GetTaskProgress(id, &info), known ? 1 : 0);
    }
    for (std::int32_t id = 1; id <= test::kStormIds; ++id) {
      const Kind kind = m_models.at(static_cast<std::size_t>(id)).kind;
      if (kind != Kind::kGood && kind != Kind::kMissing) continue;
      while (m_witnesses.Of(id).ends() == ends.at(static_cast<std::size_t>(id))) os::SleepMs(5);
      if (kind != Kind::kGood) continue;
      EXPECT_EQ(test::FileDifference(m_folder.File(NameOf(id)), test::Body(test::kStormSize)), "");
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
                              : test::kStormThreads * kIdsPerThread + below(kSharedIds));
  }
  void Act(std::mt19937& random, int thread) {
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
        Look(static_cast<std::int32_t>(random() % test::kStormIds) + 1);
        break;
    }
  }

  std::int32_t AddUrl(std::int32_t id, const std::wstring& url) {
    return m_manager.AddTask(url.c_str(), m_folder.path().c_str(), L"", id, L"", L"", 0);
  }
  void Add(std::int32_t id, Model& model, Kind kind, bool cancels) {
    if (cancels) Cancel(id, model);
    Witness& witness = m_witnesses.Of(id);
    witness.Replace(kind);
    EXPECT_EQ(AddUrl(id, m_server.Url(kind == Kind::kGood ? test::StormPathOf(id) : "/missing")),
              id);
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
    if (can_run) m_witnesses.Of(id).Continue();
    // A refused task keeps its stop event and counts as running, until it has been stopped.
    const bool counts_as_running = model.kind == Kind::kRefused && !model.stopped;
    EXPECT_EQ(m_manager.ContinueTask(id), can_run || counts_as_running ? 1 : 0);
    if (can_run) m_witnesses.Of(id).Continued();
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
    EXPECT_EQ(info.total, test::kStormSize);
    EXPECT_LE(info.downloaded, test::kStormSize);
    EXPECT_TRUE(std::wstring(info.url).ends_with(NameOf(id)));
  }

  test::TempFolder m_folder;
  test::FaultServer m_server;
  Witnesses m_witnesses;
  std::array<Model, test::kStormIds + 1> m_models;
  DownloaderManager m_manager;
};

TEST(StormTest, EightThreadsOverFortyTasksFindEverythingAsItMustBe) {
  test::ExpectStormLeavesNothing<Storm>();
}

}  // namespace
}  // namespace Tarnlo
