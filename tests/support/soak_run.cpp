#include "tests/support/soak_run.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <mutex>
#include <random>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "tests/support/digest.h"
#include "tests/support/fault_server.h"
#include "tests/support/long_run.h"
#include "tests/support/system.h"
#include "tests/support/temp_folder.h"

namespace Tarnlo::test {
namespace {

constexpr int kLanes = 6;
constexpr std::int64_t kLargest = 300'000;  // of the small ones
constexpr std::int64_t kLarge = 40'000'000;
// A server keeps the requests of its time, so it must not live through them all.
// One large task in each.
constexpr int kLongBatches = 20;
constexpr int kLongSmall = 100;
constexpr int kShortBatches = 2;
constexpr int kShortSmall = 30;
constexpr int kMostTasks = 4000;

// How often each task has told its end, and whether all was well.
//
// Threads: any.
class Ends {
 public:
  static Ends& Get() {
    static Ends ends;
    return ends;
  }
  static void Complete(std::int32_t id) { Get().Note(id); }
  static void Fail(std::int32_t id, NsResultEnum result) {
    ADD_FAILURE() << "task " << id << " failed with " << result;
    Get().Note(id);
  }
  static void Ignore(std::int32_t /*id*/) {}
  static void IgnoreProgress(std::int32_t, std::int64_t, std::int64_t, std::int32_t) {}

  [[nodiscard]] int Of(std::int32_t id) {
    const std::lock_guard guard(m_mutex);
    return m_count.at(static_cast<std::size_t>(id));
  }
  // False after a minute.
  [[nodiscard]] bool AwaitMoreThan(int count, std::int32_t id) {
    std::unique_lock lock(m_mutex);
    return m_changed.wait_for(lock, std::chrono::minutes(1),
                              [&] { return m_count.at(static_cast<std::size_t>(id)) > count; });
  }

 private:
  Ends() : m_count(kMostTasks) {}
  void Note(std::int32_t id) {
    const std::lock_guard guard(m_mutex);
    ++m_count.at(static_cast<std::size_t>(id));
    m_changed.notify_all();
  }

  std::mutex m_mutex;
  std::condition_variable m_changed;
  std::vector<int> m_count;
};

// Tasks with ids of their own, run through the exports alone. Threads: Run is called on several.
class Soak {
 public:
  explicit Soak(SoakedFunctions functions) : m_functions(std::move(functions)) {
    m_functions.set_callbacks(&Ends::Ignore, &Ends::IgnoreProgress, &Ends::Complete, &Ends::Fail);
  }

  // Over a server of their own.
  void RunBatch(int small, int large) {
    FaultServer server;
    std::atomic<int> left{small + large};
    const auto lane = [&](unsigned seed) {
      SCOPED_TRACE("seed " + std::to_string(seed));
      std::mt19937 random(seed);
      for (int number = left--; number > 0; number = left--) {
        RunTask(server, number > small, random);
      }
    };
    std::vector<std::jthread> lanes;
    for (int i = 0; i < kLanes; ++i) lanes.emplace_back(lane, std::random_device()());
  }

  [[nodiscard]] int pauses() const { return m_pauses; }

 private:
  void RunTask(FaultServer& server, bool large, std::mt19937& random) {
    Task task;
    task.id = ++m_tasks;
    const std::wstring name = std::wstring(L"f").append(std::to_wstring(task.id));
    const std::string path = std::string("/").append(name.begin(), name.end());
    const Body body(large ? kLarge : static_cast<std::int64_t>(random() % kLargest) + 1, random());
    server.Serve(path, body).Trickling(large ? 2'000'000 : random() % 2 == 0 ? 100'000 : 0);
    const std::wstring url = server.Url(path);
    task.url.assign(url.begin(), url.end());
    task.save_dir = m_folder.path();
    if (large) {
      const std::wstring digest = Md5Of(body);
      task.md5.assign(digest.begin(), digest.end());
    }
    EXPECT_EQ(m_functions.create_task(&task), task.id);
    int ends = 0;
    for (auto pauses = random() % 3; pauses > 0; --pauses) {
      std::this_thread::sleep_for(std::chrono::milliseconds(random() % (large ? 2000 : 400)));
      ends = PauseAndContinue(task.id);
    }
    EXPECT_TRUE(Ends::Get().AwaitMoreThan(ends, task.id)) << "task " << task.id;
    EXPECT_TRUE(m_functions.cancel_task(task.id));
    EXPECT_EQ(FileDifference(m_folder.File(name), body), "") << "task " << task.id;
    std::filesystem::remove(LocalPath(m_folder.File(name)));
  }

  // How often it had ended before it went on; it ends once more, though it was complete.
  int PauseAndContinue(std::int32_t id) {
    ++m_pauses;
    EXPECT_TRUE(m_functions.pause_task(id));
    const int ends = Ends::Get().Of(id);
    EXPECT_TRUE(m_functions.continue_task(id));
    return ends;
  }

  const SoakedFunctions m_functions;
  const TempFolder m_folder;
  std::atomic<int> m_tasks{0};
  std::atomic<int> m_pauses{0};
};

// Threads that were left behind to end by themselves get the time they need, and what they hold.
SoakUsage UsageWith(int threads) {
  SettledThreads(threads);
  return {};
}

// Of the log and its backups.
std::uintmax_t LogBytes() {
  std::uintmax_t bytes = 0;
  for (const auto& entry :
       std::filesystem::directory_iterator(std::filesystem::temp_directory_path())) {
    if (entry.is_regular_file() && entry.path().filename().wstring().starts_with(L"tarnlo")) {
      bytes += entry.file_size();
    }
  }
  return bytes;
}

void PrintUsage(const char* when, const SoakUsage& usage) {
  std::printf(
      "figures: %s: %d handles, %d of them sockets, %d threads, %lld bytes of heap, "
      "%lld bytes of memory\n",
      when, usage.handles, usage.sockets, usage.threads, static_cast<long long>(usage.heap),
      static_cast<long long>(usage.memory));
}

}  // namespace

SoakFigures RunSoak(const SoakedFunctions& functions) {
  Soak soak(functions);
  const int threads = RunningThreads() + 1;  // the log's
  soak.RunBatch(kShortSmall, 1);             // what is made once and kept
  SoakFigures figures;
  figures.before = UsageWith(threads);
  const std::uintmax_t log = LogBytes();
  const int pauses = soak.pauses();
  const int batches = LongRun() ? kLongBatches : kShortBatches;
  const int small = LongRun() ? kLongSmall : kShortSmall;
  const auto run_half = [&] {
    for (int i = 0; i < batches / 2 && !testing::Test::HasFailure(); ++i) soak.RunBatch(small, 1);
    return UsageWith(figures.before.threads);
  };
  figures.half_way = run_half();
  figures.after = run_half();
  const int tasks = batches * (small + 1);
  std::printf("figures: %d small and %d large tasks, %d pauses\n", tasks - batches, batches,
              soak.pauses() - pauses);
  PrintUsage("before", figures.before);
  PrintUsage("half-way", figures.half_way);
  PrintUsage("after", figures.after);
  std::printf("figures: %llu bytes of log a task\n",
              static_cast<unsigned long long>((LogBytes() - log) / static_cast<unsigned>(tasks)));
  return figures;
}

}  // namespace Tarnlo::test
