#include "manager/downloader_manager.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <string>
#include <vector>

#include "support/os/clock.h"
#include "support/os/thread.h"
#include "support/report_store.h"
#include "support/text.h"
#include "tests/faults/faults.h"
#include "tests/manager/manager_fixture.h"
#include "tests/support/digest.h"
#include "transfer/current_job.h"

namespace Tarnlo {
namespace {

class DownloaderManagerTest : public test::ManagerTest {
 protected:
  // Runs `call` inside the first "started" of task 7 and says what it answered. `others` are added
  // before it, when what is called back is settled.
  template <typename Call>
  std::int32_t InsideStartOf7(
      Call call, const std::function<void()>& others = [] {}) {
    std::atomic<std::int32_t> answer{-99};
    std::atomic<bool> called{false};
    m_callback.on_start = [&](std::int32_t id) {
      if (id == 7 && !called.exchange(true)) answer = call();
    };
    others();
    EXPECT_EQ(Add(7, "/f"), 7);
    EXPECT_TRUE(m_callback.Await("OnTaskComplete 7"));
    return answer;
  }
};

TEST_F(DownloaderManagerTest, TaskIsToldFromStartToEnd) {
  ASSERT_EQ(Add(7, "/f"), 7);
  ASSERT_TRUE(m_callback.Await("OnTaskComplete 7 0"));
  const std::vector<std::string> reports = m_callback.Reports();
  EXPECT_EQ(reports.front(), "OnTaskStart 7");
  EXPECT_EQ(reports.back(), "OnTaskComplete 7 0");
  EXPECT_EQ(m_callback.Count("OnTaskMessage 7 f"), 1);
  EXPECT_EQ(m_callback.Count("OnTaskValue 7 600000"), 1);
  EXPECT_EQ(m_callback.Count("OnTaskFail"), 0);
  EXPECT_EQ(test::FileDifference(m_folder.File(L"f"), kBody), "");
}

TEST_F(DownloaderManagerTest, NullUrlIsRefusedForAnyId) {
  EXPECT_EQ(m_manager->AddTask(nullptr, L"", L"", 0, L"", L"", 0), -1);
  EXPECT_EQ(m_manager->AddTask(nullptr, L"", L"", 7, L"", L"", 0), -1);
  EXPECT_EQ(m_manager->GetTaskCount(), 0);
}

TEST_F(DownloaderManagerTest, RemoveAndCancelAreTheSame) {
  Add(7, "/stalled");
  Add(8, "/stalled");
  EXPECT_EQ(m_manager->GetTaskCount(), 2);
  EXPECT_EQ(m_manager->RemoveTask(7), 1);
  EXPECT_EQ(m_manager->CancelTask(8), 1);
  EXPECT_EQ(m_manager->GetTaskCount(), 0);
}

TEST_F(DownloaderManagerTest, EndWithTasksStopsAndRemovesThem) {
  Add(7, "/stalled");
  Add(8, "/stalled-too");
  ASSERT_TRUE(m_callback.Await("OnTaskStage 7 5"));
  ASSERT_TRUE(m_callback.Await("OnTaskStage 8 5"));
  m_manager.reset();
  const std::size_t told = m_callback.Reports().size();
  m_gate.Open();
  test::AwaitThreads(m_threads);
  EXPECT_EQ(m_callback.Reports().size(), told);
  EXPECT_EQ(m_callback.Count("OnTaskFail"), 0);
  EXPECT_TRUE(test::FileExists(m_folder.File(L"stalled.~P2S")));
}

TEST_F(DownloaderManagerTest, Md5MatchesInLowerCase) {
  const std::wstring digest = ToLower(test::Md5Of(kBody));
  m_manager->AddTask(m_server.Url("/f").c_str(), m_folder.path().c_str(), L"", 7, L"",
                     digest.c_str(), 0);
  EXPECT_TRUE(m_callback.Await("OnTaskComplete 7"));
  EXPECT_TRUE(test::FileExists(m_folder.File(L"f")));
}

// A stop in the first attempt has nothing to tell anyway. The second one stands still until it is
// stopped.
TEST_F(DownloaderManagerTest, PauseInTheSecondAttemptIsSilent) {
  m_server.Serve("/late", kBody).Times(1).WithStatus("404 Not Found");
  m_server.Serve("/late", kBody).StallingAfter(1000, m_gate);
  // So that the host is known, and nobody asks it for a length.
  ASSERT_EQ(Add(8, "/f"), 8);
  ASSERT_TRUE(m_callback.Await("OnTaskComplete 8"));
  ASSERT_EQ(Add(7, "/late"), 7);
  ASSERT_TRUE(m_gate.AwaitArrivals(6));
  EXPECT_EQ(CReportStore::Shared().Properties()[L"retrytips"], L"1");
  EXPECT_EQ(m_manager->PauseTask(7), 1);
  EXPECT_EQ(m_callback.Count("OnTaskFail"), 0);
  EXPECT_EQ(m_callback.Count("OnTaskStart 7"), 1);
}

// Nothing of the second job is there before the first is gone.
TEST_F(DownloaderManagerTest, SameIdIsAddedWhenTheFirstTaskHasEnded) {
  test::Gate in_callback;
  m_callback.on_start = [&](std::int32_t) { test::WaitAt(in_callback); };
  ASSERT_EQ(Add(7, "/f"), 7);
  ASSERT_TRUE(in_callback.AwaitArrivals());
  std::jthread adder([this] { EXPECT_EQ(Add(7, "/f"), 7); });
  AwaitOperation();
  EXPECT_EQ(m_manager->GetTaskCount(), 1);
  EXPECT_EQ(m_callback.Count("OnTaskStart 7"), 1);
  in_callback.Open();
  adder.join();
  EXPECT_TRUE(m_callback.Await("OnTaskComplete 7"));
  EXPECT_EQ(m_manager->GetTaskCount(), 1);
  EXPECT_EQ(m_callback.Count("OnTaskStart 7"), 2);
  EXPECT_EQ(m_callback.Count("OnTaskComplete 7"), 1);
}

// As a host's own thread does that was woken by the callback, which may not be back yet.
TEST_F(DownloaderManagerTest, TaskWhoseEndIsBeingToldIsStartedAgainFromAnotherThread) {
  std::atomic<bool> asked{false};
  std::atomic<bool> answered{false};
  std::atomic<int> operations{0};
  m_callback.on_complete = [&](std::int32_t) {
    // What the callback asks for itself is not held up by the call that waits for it.
    while (!asked) os::SleepMs(1);
    for (; operations < 50 && !answered; ++operations) {
      EXPECT_EQ(m_manager->CancelTask(99), 1);
      os::SleepMs(2);
    }
  };
  ASSERT_EQ(Add(7, "/f"), 7);
  ASSERT_TRUE(m_callback.Await("OnTaskComplete 7"));
  asked = true;
  EXPECT_EQ(m_manager->ContinueTask(7), 1);
  answered = true;
  EXPECT_EQ(operations, 50);
  EXPECT_TRUE(m_callback.Await("OnTaskComplete 7", 2));
  EXPECT_EQ(m_manager->PauseTask(7), 1);  // no callback runs any more
  EXPECT_EQ(m_callback.Count("OnTaskStart 7"), 2);
}

TEST_F(DownloaderManagerTest, ContinueInsideTheCallbackOfTheEndStartsNothing) {
  std::atomic<std::int32_t> answer{-99};
  m_callback.on_complete = [&](std::int32_t id) { answer = m_manager->ContinueTask(id); };
  ASSERT_EQ(Add(7, "/f"), 7);
  while (answer == -99) os::SleepMs(1);
  EXPECT_EQ(answer, 1);
  EXPECT_EQ(m_manager->PauseTask(7), 1);
  EXPECT_EQ(m_callback.Count("OnTaskStart 7"), 1);
}

// A file that is there and right is left as it is; with the flag it is fetched again.
TEST_F(DownloaderManagerTest, FlagFetchesAFileThatIsThereAgain) {
  const std::string other = "another file";
  const std::wstring either = test::Md5Of(other) + L"," + test::Md5Of(kBody);
  const auto add = [&](std::int32_t id, std::int32_t flag) {
    return m_manager->AddTask(m_server.Url("/f").c_str(), m_folder.path().c_str(), L"", id, L"",
                              either.c_str(), flag);
  };
  test::WriteFileBytes(m_folder.File(L"f"), other);
  ASSERT_EQ(add(1, 0), 1);
  ASSERT_TRUE(m_callback.Await("OnTaskComplete 1"));
  EXPECT_EQ(test::ReadFileBytes(m_folder.File(L"f")), other);
  ASSERT_EQ(add(2, 1), 2);
  ASSERT_TRUE(m_callback.Await("OnTaskComplete 2"));
  EXPECT_EQ(test::FileDifference(m_folder.File(L"f"), kBody), "");
}

// --- Calls from inside a callback of the same task

TEST_F(DownloaderManagerTest, PauseInsideTheTasksOwnCallbackIsRefused) {
  EXPECT_EQ(InsideStartOf7([this] { return m_manager->PauseTask(7); }), 0);
}

TEST_F(DownloaderManagerTest, CancelInsideTheTasksOwnCallbackIsRefused) {
  EXPECT_EQ(InsideStartOf7([this] { return m_manager->CancelTask(7); }), 0);
  EXPECT_EQ(m_manager->GetTaskCount(), 1);
}

TEST_F(DownloaderManagerTest, AddOfTheSameIdInsideItsOwnCallbackIsRefused) {
  EXPECT_EQ(InsideStartOf7([this] { return Add(7, "/f"); }), -1);
  EXPECT_EQ(m_callback.Count("OnTaskStart 7"), 1);
}

TEST_F(DownloaderManagerTest, CancelAllInsideACallbackIsRefused) {
  EXPECT_EQ(InsideStartOf7([this] { return m_manager->CancelAllTasks(); }), 0);
  EXPECT_EQ(m_manager->GetTaskCount(), 1);
}

TEST_F(DownloaderManagerTest, ContinueInsideTheTasksOwnCallbackStartsNothing) {
  EXPECT_EQ(InsideStartOf7([this] { return m_manager->ContinueTask(7); }), 1);
  EXPECT_EQ(m_callback.Count("OnTaskStart 7"), 1);
}

// What was written of a range is told on the thread of the worker that wrote it: a thread of the
// task's that is not its job's.
TEST_F(DownloaderManagerTest, CallsOnAWorkersThreadAreRecognisedToo) {
  constexpr std::int32_t kRangeProgress = 1;
  std::atomic<std::uint32_t> job_thread{0};
  std::atomic<std::uint32_t> worker_thread{0};
  std::vector<std::int32_t> answers;
  m_callback.on_start = [&](std::int32_t) { job_thread = os::CurrentThreadId(); };
  m_callback.on_stage = [&](std::int32_t id, std::int32_t code, std::int32_t stage) {
    std::uint32_t nobody = 0;
    if (stage != kRangeProgress || code < 0) return;
    if (!worker_thread.compare_exchange_strong(nobody, os::CurrentThreadId())) return;
    EXPECT_NE(CurrentJob(), nullptr);
    answers = {m_manager->PauseTask(id), m_manager->CancelTask(id), Add(id, "/f"),
               m_manager->CancelAllTasks(), m_manager->ContinueTask(id)};
  };
  ASSERT_EQ(Add(7, "/f"), 7);
  ASSERT_TRUE(m_callback.Await("OnTaskComplete 7"));
  EXPECT_NE(worker_thread, 0U);
  EXPECT_NE(worker_thread, job_thread);
  EXPECT_NE(worker_thread, os::CurrentThreadId());
  EXPECT_EQ(answers, (std::vector<std::int32_t>{0, 0, -1, 0, 1}));
  EXPECT_EQ(m_callback.Count("OnTaskStart 7"), 1);
  EXPECT_EQ(m_manager->GetTaskCount(), 1);
}

TEST_F(DownloaderManagerTest, OtherTasksAreControlledFromInsideACallback) {
  EXPECT_EQ(InsideStartOf7(
                [this] {
                  return m_manager->PauseTask(8) + 10 * m_manager->ContinueTask(8) +
                         100 * m_manager->CancelTask(8) + 1000 * Add(9, "/stalled");
                },
                [this] { EXPECT_EQ(Add(8, "/stalled"), 8); }),
            9111);
  EXPECT_EQ(m_manager->GetTaskCount(), 2);
}

TEST_F(DownloaderManagerTest, NextTaskIsCreatedFromInsideComplete) {
  m_callback.on_complete = [this](std::int32_t id) {
    if (id == 5) return;
    EXPECT_EQ(Add(id + 1, "/f"), id + 1);
  };
  ASSERT_EQ(Add(1, "/f"), 1);
  EXPECT_TRUE(m_callback.Await("OnTaskComplete 5"));
}

// --- Callbacks that wait while their task is being stopped

TEST_F(DownloaderManagerTest, CallbackThatWaitsForTheManagerGivesUpWhenItsTaskIsStopped) {
  test::Gate in_callback;
  std::atomic<std::int32_t> pause{-99};
  std::atomic<std::int32_t> add{-99};
  m_callback.on_start = [&](std::int32_t id) {
    if (id != 7) return;
    test::WaitAt(in_callback);
    pause = m_manager->PauseTask(8);
    add = Add(9, "/f");
  };
  const std::uint32_t forced = os::ForcedEnds();
  ASSERT_EQ(Add(7, "/f"), 7);
  ASSERT_TRUE(in_callback.AwaitArrivals());
  std::jthread canceller([this] { EXPECT_EQ(m_manager->CancelTask(7), 1); });
  // The cancel has the manager from here on, until the callback is back.
  AwaitOperation();
  const auto begin = std::chrono::steady_clock::now();
  in_callback.Open();
  canceller.join();
  EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(2500));
  EXPECT_EQ(pause, 0);
  EXPECT_EQ(add, -1);
  EXPECT_EQ(os::ForcedEnds(), forced);
  EXPECT_EQ(m_manager->GetTaskCount(), 0);
}

// A wait of the second job's own fails, so that it ends its workers, one of which is waiting for
// the manager inside a callback. The first job's end, which is waited for five seconds, must come
// later: the second one's next wait begins within one.
TEST_F(DownloaderManagerTest, CallbackThatWaitsForTheManagerGivesUpWhenItsWorkerIsStopped) {
  test::Gate first;
  test::Gate second;
  std::atomic<std::int32_t> cancel{-99};
  m_callback.on_start = [&](std::int32_t id) {
    if (id == 7) test::WaitAt(first);
  };
  m_callback.on_progress = [&](std::int32_t id) {
    if (id != 8 || second.Arrivals() > 0) return;
    test::WaitAt(second);
    cancel = m_manager->CancelTask(99);
  };
  const std::uint32_t forced = os::ForcedEnds();
  ASSERT_EQ(Add(7, "/f"), 7);
  ASSERT_TRUE(first.AwaitArrivals());
  ASSERT_EQ(Add(8, "/slow"), 8);
  ASSERT_TRUE(second.AwaitArrivals());
  std::jthread canceller([this] { EXPECT_EQ(m_manager->CancelTask(7), 1); });
  // The cancel has the manager from here on, until the first callback is back.
  AwaitOperation();
  second.Open();
  test::Faults faults;
  faults.Fail(os::Call::kWait);
  while (cancel == -99 && os::ForcedEnds() == forced) os::SleepMs(1);
  EXPECT_EQ(cancel, 0);
  first.Open();
  canceller.join();
  EXPECT_EQ(m_manager->CancelTask(8), 1);
  EXPECT_EQ(os::ForcedEnds(), forced);
}

TEST_F(DownloaderManagerTest, TasksThatCancelEachOtherDoNotHang) {
  test::Gate both;
  std::atomic<int> answers{0};
  std::atomic<int> cancelled{0};
  m_callback.on_start = [&](std::int32_t id) {
    test::WaitAt(both);
    cancelled += m_manager->CancelTask(id == 1 ? 2 : 1);
    ++answers;
  };
  ASSERT_EQ(Add(1, "/stalled"), 1);
  ASSERT_EQ(Add(2, "/stalled-too"), 2);
  ASSERT_TRUE(both.AwaitArrivals(2));
  const std::uint32_t forced = os::ForcedEnds();
  const auto begin = std::chrono::steady_clock::now();
  both.Open();
  while (answers < 2 && os::ForcedEnds() == forced) os::SleepMs(1);
  EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(2500));
  EXPECT_EQ(os::ForcedEnds(), forced);
  EXPECT_EQ(cancelled, 1);
  EXPECT_EQ(m_manager->GetTaskCount(), 1);
}

}  // namespace
}  // namespace Tarnlo
