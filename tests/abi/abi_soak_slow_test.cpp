// Very many tasks in one process, paused and continued at any moment: what it holds of the system
// at the end is what it held at the start.
#include <gtest/gtest.h>

#include <algorithm>
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
#include <vector>

#include "engine/md5.h"
#include "tests/abi/loaded_dll.h"
#include "tests/support/fault_server.h"
#include "tests/support/long_run.h"
#include "tests/support/process_usage.h"
#include "tests/support/temp_folder.h"

namespace Tarnlo {
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
// What the system's libraries keep for themselves, by how many threads there were at the most. Most
// of it is there half-way, so heap and memory are compared with what they were then; memory still
// grows by some megabytes with the busiest moment.
constexpr int kSlackHandles = 10;
constexpr std::int64_t kSlackHeap = 10'000;
constexpr std::int64_t kSlackMemory = 16'000'000;

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

std::string Md5Of(const test::Body& body) {
  constexpr std::int64_t kBlock = 100'000;
  static_assert(kLarge % kBlock == 0);
  MD5 md5;
  for (std::int64_t at = 0; at < body.size(); at += kBlock) {
    md5.Update(body.Bytes(at, kBlock).data(), kBlock);
  }
  md5.Finalize();
  const std::wstring digest = md5.HexDigest();
  return {digest.begin(), digest.end()};
}

// Tasks with ids of their own, run through the exports alone. Threads: Run is called on several.
class Soak {
 public:
  explicit Soak(const test::LoadedDll& dll) : m_dll(dll) {
    dll.set_callback_start(&Ends::Ignore);
    dll.set_callback_process(&Ends::IgnoreProgress);
    dll.set_callback_complete(&Ends::Complete);
    dll.set_callback_fail(&Ends::Fail);
  }

  // Over a server of their own.
  void RunBatch(int small, int large) {
    test::FaultServer server;
    std::atomic<int> left{small + large};
    const auto lane = [&](unsigned seed) {
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
  void RunTask(test::FaultServer& server, bool large, std::mt19937& random) {
    Task task;
    task.id = ++m_tasks;
    const std::wstring name = std::wstring(L"f").append(std::to_wstring(task.id));
    const std::string path = "/" + std::string(name.begin(), name.end());
    const test::Body body(large ? kLarge : static_cast<std::int64_t>(random() % kLargest) + 1,
                          random());
    server.Serve(path, body).Trickling(large ? 2'000'000 : random() % 2 == 0 ? 100'000 : 0);
    const std::wstring url = server.Url(path);
    task.url.assign(url.begin(), url.end());
    task.save_dir = m_folder.path();
    if (large) task.md5 = Md5Of(body);
    EXPECT_EQ(m_dll.create_task(&task), task.id);
    int ends = 0;
    for (auto pauses = random() % 3; pauses > 0; --pauses) {
      std::this_thread::sleep_for(std::chrono::milliseconds(random() % (large ? 2000 : 400)));
      ends = PauseAndContinue(task.id);
    }
    EXPECT_TRUE(Ends::Get().AwaitMoreThan(ends, task.id)) << "task " << task.id;
    EXPECT_TRUE(m_dll.cancel_task(task.id));
    EXPECT_EQ(test::FileDifference(m_folder.File(name), body), "") << "task " << task.id;
    std::filesystem::remove(m_folder.File(name));
  }

  // How often it had ended before it went on; it ends once more, though it was complete.
  int PauseAndContinue(std::int32_t id) {
    ++m_pauses;
    EXPECT_TRUE(m_dll.pause_task(id));
    const int ends = Ends::Get().Of(id);
    EXPECT_TRUE(m_dll.continue_task(id));
    return ends;
  }

  const test::LoadedDll& m_dll;
  const test::TempFolder m_folder;
  std::atomic<int> m_tasks{0};
  std::atomic<int> m_pauses{0};
};

struct Usage {
  int handles = test::OpenHandles();
  int sockets = test::OpenSockets();
  int threads = test::RunningThreads();
  std::int64_t heap = test::HeapInUse();
  std::int64_t memory = test::Memory().now;
};

// Threads that were left behind to end by themselves get the time they need, and what they hold.
Usage UsageWith(int threads) {
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(20);
  while (test::RunningThreads() > threads && std::chrono::steady_clock::now() < end) {
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
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

void PrintUsage(const char* when, const Usage& usage) {
  std::printf(
      "figures: %s: %d handles, %d of them sockets, %d threads, %lld bytes of heap, "
      "%lld bytes of memory\n",
      when, usage.handles, usage.sockets, usage.threads, static_cast<long long>(usage.heap),
      static_cast<long long>(usage.memory));
}

class SlowSoak : public testing::Test {};

TEST_F(SlowSoak, ThousandsOfTasksLeaveNothingBehind) {
  static const test::LoadedDll dll;  // stays, as the library does once it has been started
  Soak soak(dll);
  const int threads = test::RunningThreads() + 1;  // the log's
  soak.RunBatch(kShortSmall, 1);                   // what is made once and kept
  const Usage before = UsageWith(threads);
  const std::uintmax_t log = LogBytes();
  const int pauses = soak.pauses();
  const int batches = test::LongRun() ? kLongBatches : kShortBatches;
  const int small = test::LongRun() ? kLongSmall : kShortSmall;
  const auto run_half = [&] {
    for (int i = 0; i < batches / 2 && !HasFailure(); ++i) soak.RunBatch(small, 1);
    return UsageWith(before.threads);
  };
  const Usage half_way = run_half();
  const Usage after = run_half();
  const int tasks = batches * (small + 1);
  std::printf("figures: %d small and %d large tasks, %d pauses\n", tasks - batches, batches,
              soak.pauses() - pauses);
  PrintUsage("before", before);
  PrintUsage("half-way", half_way);
  PrintUsage("after", after);
  std::printf("figures: %llu bytes of log a task\n",
              static_cast<unsigned long long>((LogBytes() - log) / static_cast<unsigned>(tasks)));
  EXPECT_LE(after.handles, before.handles + kSlackHandles);
  EXPECT_LE(after.sockets, before.sockets);
  EXPECT_LE(after.threads, before.threads);
  EXPECT_LE(after.heap, half_way.heap + kSlackHeap);
  EXPECT_LE(after.memory, half_way.memory + kSlackMemory);
}

}  // namespace
}  // namespace Tarnlo
