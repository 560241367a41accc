#include <gtest/gtest.h>

#include <atomic>
#include <cstddef>
#include <string>
#include <thread>
#include <vector>

#include "tests/manager/manager_fixture.h"
#include "tests/support/test_log.h"

namespace Tarnlo {
namespace {

// Hosts read the record by its layout.
static_assert(offsetof(TaskProgressInfo, id) == 0 && offsetof(TaskProgressInfo, total) == 8);
static_assert(offsetof(TaskProgressInfo, downloaded) == 16);
static_assert(offsetof(TaskProgressInfo, speed) == 24 && offsetof(TaskProgressInfo, url) == 28);
static_assert(offsetof(TaskProgressInfo, folder) == 28 + 512 * sizeof(wchar_t));
static_assert(offsetof(TaskProgressInfo, file_name) == 28 + 2 * 512 * sizeof(wchar_t));
static_assert(sizeof(TaskProgressInfo::file_name) == 512 * sizeof(wchar_t));

constexpr std::int32_t kUntouched = -77;

class TaskProgressTest : public test::ManagerTest {
 protected:
  TaskProgressTest() {
    m_info.id = kUntouched;
    m_info.speed = 77;
    m_info.url[0] = L'#';
    m_info.url[1] = L'\0';
  }
  // Of task 7, for which there are no figures yet.
  void ExpectTheIdAlone() {
    EXPECT_EQ(m_manager->GetTaskProgress(7, &m_info), 1);
    EXPECT_EQ(m_info.id, 7);
    EXPECT_EQ(m_info.total, -1);
    EXPECT_EQ(m_info.downloaded, -1);
    EXPECT_EQ(m_info.speed, 77u);
    EXPECT_EQ(std::wstring(m_info.url), L"#");
  }
  TaskProgressInfo m_info{};
};

TEST_F(TaskProgressTest, UnknownIdIsNotFound) {
  EXPECT_EQ(m_manager->GetTaskProgress(5, &m_info), 0);
  EXPECT_EQ(m_info.id, kUntouched);
}

TEST_F(TaskProgressTest, UnknownSizeGivesTheIdAloneAndLeavesSpeedAndTexts) {
  ASSERT_EQ(Add(7, "/held"), 7);
  ASSERT_TRUE(m_gate.AwaitArrivals());
  ExpectTheIdAlone();
}

// The callback of the length holds the job's thread, which shares the ranges out afterwards.
TEST_F(TaskProgressTest, KnownSizeWithoutRangesGivesTheIdAloneToo) {
  m_callback.on_value = [this](std::int32_t) { test::WaitAt(m_gate); };
  ASSERT_EQ(Add(7, "/f"), 7);
  ASSERT_TRUE(m_gate.AwaitArrivals());
  ExpectTheIdAlone();
  DownloadInfo current{};
  EXPECT_EQ(m_manager->GetDownloadInfo(&current)->total, kSize);
  m_gate.Open();
  EXPECT_TRUE(m_callback.Await("OnTaskComplete 7"));
}

TEST_F(TaskProgressTest, KnownSizeGivesFiguresAndTexts) {
  ASSERT_EQ(Add(7, "/stalled"), 7);
  ASSERT_TRUE(m_callback.Await("OnTaskStage 7 5"));  // the last worker has its range
  ASSERT_EQ(m_manager->GetTaskProgress(7, &m_info), 1);
  EXPECT_EQ(m_info.id, 7);
  EXPECT_EQ(m_info.total, kSize);
  EXPECT_GE(m_info.downloaded, 0);
  EXPECT_LE(m_info.downloaded, 6 * 1000);
  EXPECT_EQ(std::wstring(m_info.url), m_server.Url("/stalled"));
  EXPECT_EQ(std::wstring(m_info.folder), m_folder.path());
  EXPECT_EQ(std::wstring(m_info.file_name), L"");
}

TEST_F(TaskProgressTest, CompleteTaskIsAllDownloaded) {
  ASSERT_EQ(Add(7, "/f"), 7);
  ASSERT_TRUE(m_callback.Await("OnTaskComplete 7"));
  ASSERT_EQ(m_manager->GetTaskProgress(7, &m_info), 1);
  EXPECT_EQ(m_info.total, kSize);
  EXPECT_EQ(m_info.downloaded, kSize);
}

TEST_F(TaskProgressTest, LongTextsAreCut) {
  const std::wstring url = m_server.Url("/stalled") + L"?" + std::wstring(600, L'q');
  m_server.Serve("/stalled?" + std::string(600, 'q'), kBody).StallingAfter(1000, m_gate);
  m_manager->AddTask(url.c_str(), m_folder.path().c_str(), L"short.bin", 7, L"", L"", 0);
  ASSERT_TRUE(m_callback.Await("OnTaskStage 7 5"));
  ASSERT_EQ(m_manager->GetTaskProgress(7, &m_info), 1);
  EXPECT_EQ(std::wstring(m_info.url), url.substr(0, 511));
  EXPECT_EQ(std::wstring(m_info.file_name), L"short.bin");
}

// What a second of the run gives, when it is the same before and after the question.
TEST_F(TaskProgressTest, SpeedIsZeroInTheFirstSecondThenBytesPerWholeSecond) {
  bool first_seen = false;
  for (int run = 0; !first_seen; ++run) {
    const std::wstring folder = m_folder.MakeFolder(std::to_wstring(run));
    m_manager->AddTask(m_server.Url("/f").c_str(), folder.c_str(), L"", 7, L"", L"", 0);
    ASSERT_TRUE(m_callback.Await("OnTaskComplete 7", run + 1));
    for (std::uint32_t second = 0; second < 3;) {
      DownloadInfo before{};
      DownloadInfo after{};
      m_manager->GetDownloadInfo(&before);
      ASSERT_EQ(m_manager->GetTaskProgress(7, &m_info), 1);
      m_manager->GetDownloadInfo(&after);
      second = before.elapsed_ms / 1000;
      if (second != after.elapsed_ms / 1000) continue;
      if (before.run_bytes == 0) break;  // all had come before the count began: another run
      const std::int64_t speed = second == 0 ? 0 : before.run_bytes / second;
      ASSERT_EQ(m_info.speed, static_cast<std::uint32_t>(speed)) << second;
      first_seen = first_seen || second == 0;
    }
  }
}

// The callback holds the job's thread, and with it the cancel that waits for the thread.
TEST_F(TaskProgressTest, AnswersNothingAtOnceWhileAnOperationIsUnderWay) {
  test::Gate in_callback;
  m_callback.on_start = [&](std::int32_t id) {
    if (id == 7) test::WaitAt(in_callback);
  };
  ASSERT_EQ(Add(8, "/stalled"), 8);
  ASSERT_EQ(Add(7, "/f"), 7);
  ASSERT_TRUE(in_callback.AwaitArrivals());
  EXPECT_EQ(m_manager->GetTaskProgress(8, &m_info), 1);
  std::jthread canceller([this] { m_manager->CancelTask(7); });
  AwaitOperation();
  const auto begin = std::chrono::steady_clock::now();
  EXPECT_EQ(m_manager->GetTaskProgress(8, &m_info), 0);
  DownloadInfo current{};
  EXPECT_EQ(m_manager->GetDownloadInfo(&current)->id, -1);
  EXPECT_EQ(m_manager->GetTaskCount(), 2);
  EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(2500));
  in_callback.Open();
  canceller.join();
  EXPECT_EQ(m_manager->GetTaskProgress(8, &m_info), 1);
}

TEST_F(TaskProgressTest, ReadersDoNotMakeEachOtherFail) {
  ASSERT_EQ(Add(7, "/stalled"), 7);
  std::atomic<int> failures{0};
  {
    std::vector<std::jthread> readers;
    for (int i = 0; i < 4; ++i) {
      readers.emplace_back([&] {
        for (int turn = 0; turn < 5000; ++turn) {
          TaskProgressInfo info;
          if (m_manager->GetTaskProgress(7, &info) == 0) ++failures;
        }
      });
    }
  }
  EXPECT_EQ(failures, 0);
}

TEST_F(TaskProgressTest, ReadingIsSafeWhileTasksComeAndGo) {
  std::atomic<bool> going{true};
  std::atomic<int> seen{0};  // readings of a task whose size was known
  const std::wstring url = m_server.Url("/trickle");
  std::vector<std::jthread> readers;
  for (int i = 0; i < 3; ++i) {
    readers.emplace_back([&] {
      while (going) {
        TaskProgressInfo info;
        for (const std::int32_t id : {1, 2, 3}) {
          if (m_manager->GetTaskProgress(id, &info) == 0 || info.total < 0) continue;
          EXPECT_EQ(info.id, id);
          EXPECT_EQ(info.total, kSize);
          EXPECT_LE(info.downloaded, kSize);
          EXPECT_EQ(std::wstring(info.url), url);
          EXPECT_EQ(std::wstring(info.folder), m_folder.path());
          ++seen;
        }
      }
    });
  }
  m_server.Serve("/trickle", kBody).Trickling(2'000'000);
  for (int turn = 0; turn < 12; ++turn) {
    for (const std::int32_t id : {1, 2, 3}) EXPECT_EQ(Add(id, "/trickle"), id);
    for (const int before = seen; seen == before;) os::SleepMs(1);
    EXPECT_EQ(m_manager->PauseTask(1), 1);
    EXPECT_EQ(m_manager->ContinueTask(1), 1);
    EXPECT_EQ(m_manager->CancelTask(2), 1);
    EXPECT_EQ(m_manager->CancelTask(3), 1);
  }
  going = false;
}

TEST_F(TaskProgressTest, InfoOfTheCurrentJob) {
  DownloadInfo info{};
  EXPECT_EQ(m_manager->GetDownloadInfo(&info), &info);
  EXPECT_EQ(info.id, -1);
  EXPECT_EQ(info.total, -1);
  // Bytes count from the tick that is set when all connections are started.
  m_server.Serve("/gated", kBody).ForPieces().HoldingAnswer(m_gate);
  m_server.Serve("/gated", kBody);
  const test::LogReader log;
  ASSERT_EQ(Add(7, "/gated"), 7);
  ASSERT_TRUE(log.Await("CDownloadManager StartMTRDownload 22"));
  m_gate.Open();
  ASSERT_TRUE(m_callback.Await("OnTaskComplete 7"));
  EXPECT_EQ(m_manager->GetDownloadInfo(&info)->id, 7);
  EXPECT_EQ(info.total, kSize);
  EXPECT_EQ(info.downloaded, kSize);
  EXPECT_EQ(info.run_bytes, kSize);
}

}  // namespace
}  // namespace Tarnlo
