// Many threads do random things to many tasks; what each call answers and each report says is known
// beforehand.
#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <cstdint>
#include <mutex>
#include <random>
#include <string>

#include "manager/downloader_manager.h"
#include "support/os/clock.h"
#include "tests/manager/throttled_files.h"
#include "tests/manager/usage.h"
#include "tests/support/temp_folder.h"

namespace Tarnlo {
namespace {

constexpr std::int32_t kIds = test::ThrottledFiles::kIds;
constexpr int kIdsPerThread = kIds / test::kStormThreads;
constexpr std::int64_t kSize = test::ThrottledFiles::kSize;

// What a task has told since it was last started, and whether it may tell anything at all.
//
// Threads: any.
class Witness {
 public:
  void Open() { m_open = true; }
  // Whoever stopped the task has had the answer: nothing may come any more.
  void Close() { m_open = false; }

  void Start() {
    const std::lock_guard guard(m_mutex);
    Expect(m_open, "started though stopped");
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
  void End(std::int32_t result, std::int32_t expected) {
    const std::lock_guard guard(m_mutex);
    Expect(m_open, "ended though stopped");
    Expect(m_running, "ended without a start, or twice");
    EXPECT_EQ(result, expected);
    m_running = false;
    ++m_ends;
  }
  [[nodiscard]] int ends() const { return m_ends; }

 private:
  static void Expect(bool holds, const char* otherwise) { EXPECT_TRUE(holds) << otherwise; }

  std::atomic<bool> m_open{false};
  std::mutex m_mutex;
  bool m_running = false;
  std::int64_t m_downloaded = 0;
  std::atomic<int> m_ends{0};
};

enum class Kind { kNone, kGood, kMissing, kRefused };  // none: not in the table

class Witnesses final : public IDownloaderManagerCallBack {
 public:
  Witness& Of(std::int32_t id) { return m_witnesses.at(static_cast<std::size_t>(id)); }
  // What the task is, told before it can report.
  void SetKind(std::int32_t id, Kind kind) { m_kinds.at(static_cast<std::size_t>(id)) = kind; }

  void OnTaskMessage(std::int32_t, const std::wstring&) override {}
  void OnTaskValue(std::int32_t, std::int64_t value) override { EXPECT_EQ(value, kSize); }
  void OnTaskProgress(std::int32_t id, std::int64_t downloaded, std::int64_t total,
                      std::int32_t) override {
    Of(id).Progress(downloaded, total);
  }
  void OnTaskComplete(std::int32_t id, std::int32_t) override { End(id, kResultSuccess); }
  void OnTaskFail(std::int32_t id, NsResultEnum result) override { End(id, result); }
  void OnTaskStage(std::int32_t, std::int32_t, std::int32_t, std::int64_t) override {}
  void OnTaskStart(std::int32_t id) override { Of(id).Start(); }

 private:
  void End(std::int32_t id, std::int32_t result) {
    const bool good = m_kinds.at(static_cast<std::size_t>(id)) == Kind::kGood;
    Of(id).End(result, good ? kResultSuccess : kResultNoRemoteInfo);
  }

  std::array<Witness, kIds + 1> m_witnesses;
  std::array<std::atomic<Kind>, kIds + 1> m_kinds{};
};

// One task as its thread knows it.
struct Model {
  Kind kind = Kind::kNone;
  bool stopped = false;  // and not continued since
};

class Storm {
 public:
  Storm() { m_manager.SetCallBack(&m_witnesses); }

  void Rage(int operations) {
    test::InStormThreads(
        [this, operations](int thread) { Run(thread, operations / test::kStormThreads); });
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

  void Run(int thread, int operations) {
    std::mt19937 random(static_cast<unsigned>(thread) + 1);
    for (int i = 0; i < operations; ++i) {
      const auto id = static_cast<std::int32_t>(thread * kIdsPerThread + 1 +
                                                static_cast<int>(random() % kIdsPerThread));
      Model& model = m_models.at(static_cast<std::size_t>(id));
      switch (random() % 12) {
        case 0:
        case 1:
        case 2:
          AddGood(id, model);
          break;
        case 3:
          AddMissing(id, model);
          break;
        case 4:
          AddRefused(id, model, random() % 2 == 0);
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

  std::int32_t Add(std::int32_t id, const std::wstring& url) {
    return m_manager.AddTask(url.c_str(), m_folder.path().c_str(), L"", id, L"", L"", 0);
  }
  void AddGood(std::int32_t id, Model& model) {
    Cancel(id, model);  // so that the reports of the one before cannot be taken for this one's
    m_witnesses.SetKind(id, Kind::kGood);
    m_witnesses.Of(id).Open();
    EXPECT_EQ(Add(id, m_files.UrlOf(id)), id);
    model = {Kind::kGood, false};
  }
  void AddMissing(std::int32_t id, Model& model) {
    Cancel(id, model);
    m_witnesses.SetKind(id, Kind::kMissing);
    m_witnesses.Of(id).Open();
    EXPECT_EQ(Add(id, m_files.MissingUrl()), id);
    model = {Kind::kMissing, false};
  }
  // An empty URL takes the old task's place and is not started; one that is too long does nothing.
  void AddRefused(std::int32_t id, Model& model, bool empty) {
    EXPECT_EQ(Add(id, empty ? std::wstring() : std::wstring(2048, L'u')), -1);
    if (!empty) return;
    m_witnesses.Of(id).Close();
    model = {Kind::kRefused, false};
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
    model = {};
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
  test::ThrottledFiles m_files;
  Witnesses m_witnesses;
  std::array<Model, kIds + 1> m_models;  // each its thread's, then the main thread's
  DownloaderManager m_manager;
};

TEST(StormTest, EightThreadsOverFortyTasksFindEverythingAsItMustBe) {
  test::ExpectNothingIsLeftBy(
      [](int operations) {
        Storm storm;
        storm.Rage(operations);
        storm.Settle();
      },
      40, 2000);
}

}  // namespace
}  // namespace Tarnlo
