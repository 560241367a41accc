#include "manager/task_manager.h"

#include <gtest/gtest.h>

#include <array>
#include <filesystem>
#include <string>

#include "support/os/clock.h"
#include "support/os/file.h"
#include "support/os/system_folders.h"
#include "tests/faults/faults.h"
#include "tests/support/fault_server.h"
#include "tests/support/gate.h"
#include "tests/support/process_usage.h"
#include "tests/support/recording_observer.h"
#include "tests/support/system.h"
#include "tests/support/temp_folder.h"
#include "tests/support/test_log.h"

namespace Tarnlo {
namespace {

using test::Body;

// Tasks that wait for a gate of the server's with the size known, or end as the test wants.
class TaskManagerTest : public testing::Test {
 protected:
  TaskManagerTest() {
    m_server.Serve("/slow", Body(100'000)).StallingAfter(0, m_gate);
    m_server.Serve("/f", Body(100'000));
  }

  std::int32_t Add(std::int32_t id, const std::string& path = "/slow") {
    return AddUrl(id, m_server.Url(path));
  }
  std::int32_t AddUrl(std::int32_t id, const std::wstring& url) {
    return m_tasks.AddTask(url.c_str(), m_folder.path().c_str(), L"", id, L"", L"", 0);
  }
  // The watchdog ends a wait in vain.
  void AwaitFinish() const {
    while (m_observer.EventsOf(kEventFinished).empty()) os::SleepMs(1);
  }
  [[nodiscard]] std::int32_t CurrentId() const {
    TaskReading reading;
    return m_tasks.ReadCurrentTask(reading) ? reading.id : -1;
  }
  [[nodiscard]] bool Knows(std::int32_t id) const {
    TaskReading reading;
    return m_tasks.ReadTask(id, reading);
  }

  test::Gate m_gate;
  test::TempFolder m_folder;
  test::FaultServer m_server;
  test::RecordingObserver m_observer;
  const int m_threads = test::RunningThreads();
  CTaskManager m_tasks{&m_observer};
};

// Another temporary folder as long as it lives.
class OtherTempFolder {
 public:
  explicit OtherTempFolder(const std::filesystem::path& folder) { test::PointTempFolderAt(folder); }
  OtherTempFolder(const OtherTempFolder&) = delete;
  OtherTempFolder& operator=(const OtherTempFolder&) = delete;
  ~OtherTempFolder() { test::PointTempFolderAt(m_before); }

 private:
  const std::filesystem::path m_before = std::filesystem::temp_directory_path();
};

TEST_F(TaskManagerTest, NullUrlIsRefusedAndRemovesNothing) {
  EXPECT_EQ(Add(7), 7);
  EXPECT_EQ(m_tasks.AddTask(nullptr, m_folder.path().c_str(), L"", 7, L"", L"", 0), -1);
  EXPECT_EQ(m_tasks.count(), 1);
}

TEST_F(TaskManagerTest, IdThatIsThereIsReplaced) {
  EXPECT_EQ(Add(7), 7);
  EXPECT_EQ(Add(7), 7);
  EXPECT_EQ(m_tasks.count(), 1);
}

TEST_F(TaskManagerTest, NullVersionAndMd5AndNameCountAsEmpty) {
  EXPECT_EQ(m_tasks.AddTask(m_server.Url("/slow").c_str(), m_folder.path().c_str(), nullptr, 7,
                            nullptr, nullptr, 0),
            7);
}

TEST_F(TaskManagerTest, TaskThatCannotBeStartedKeepsItsRow) {
  EXPECT_EQ(AddUrl(7, L""), -1);
  EXPECT_EQ(m_tasks.count(), 1);
  EXPECT_EQ(m_tasks.RemoveTask(7), 1);
  EXPECT_EQ(m_tasks.count(), 0);
}

TEST_F(TaskManagerTest, UnknownIdsArePausedAndRemovedAndNotContinued) {
  const test::LogReader log;
  EXPECT_EQ(m_tasks.PauseTask(5), 1);
  EXPECT_EQ(m_tasks.RemoveTask(5), 1);
  EXPECT_EQ(m_tasks.ContinueTask(5), 0);
  EXPECT_EQ(log.LinesOfThisThread(), std::vector<std::string>());
}

TEST_F(TaskManagerTest, TaskThatRunsIsContinuedWithoutANewStart) {
  Add(7);
  ASSERT_TRUE(m_gate.AwaitArrivals());
  EXPECT_EQ(m_tasks.ContinueTask(7), 1);
  m_gate.Open();
  AwaitFinish();
  EXPECT_EQ(m_observer.NumbersOf(kEventFinished), std::vector<std::int64_t>{kResultSuccess});
  EXPECT_EQ(m_observer.EventsOf(kEventStarted).size(), 1u);
}

TEST_F(TaskManagerTest, PausedTaskIsContinuedWithItsTexts) {
  ASSERT_EQ(m_tasks.AddTask(m_server.Url("/slow").c_str(), m_folder.path().c_str(), L"own.bin", 7,
                            L"", L"", 0),
            7);
  ASSERT_TRUE(m_gate.AwaitArrivals());
  EXPECT_EQ(m_tasks.PauseTask(7), 1);
  EXPECT_EQ(m_tasks.PauseTask(7), 1);
  EXPECT_EQ(m_tasks.count(), 1);
  m_gate.Open();
  EXPECT_EQ(m_tasks.ContinueTask(7), 1);
  AwaitFinish();
  EXPECT_EQ(m_observer.NumbersOf(kEventFinished), std::vector<std::int64_t>{kResultSuccess});
  EXPECT_EQ(test::FileDifference(m_folder.File(L"own.bin"), Body(100'000)), "");
}

TEST_F(TaskManagerTest, ContinueWithoutAStopEventAsksNothingOfTheJob) {
  ASSERT_EQ(Add(7), 7);
  ASSERT_EQ(m_tasks.PauseTask(7), 1);
  const test::LogReader log;
  {
    test::Faults faults;
    // All of them: one alone might be another thread's.
    faults.Fail(os::Call::kEvent, 1, 1'000'000);
    EXPECT_EQ(m_tasks.ContinueTask(7), 0);
    EXPECT_GE(faults.Failed(), 1);
  }
  EXPECT_EQ(log.LinesOfThisThread(), std::vector<std::string>());
  m_gate.Open();
  EXPECT_EQ(m_tasks.ContinueTask(7), 1);
  AwaitFinish();
  EXPECT_EQ(m_observer.NumbersOf(kEventFinished), std::vector<std::int64_t>{kResultSuccess});
}

// A removal makes the next row's job current, of the last row the one before.
TEST_F(TaskManagerTest, CurrentJobIsTheLastAddedThenANeighbour) {
  EXPECT_EQ(CurrentId(), -1);
  for (const std::int32_t id : {1, 2, 3}) Add(id);
  EXPECT_EQ(CurrentId(), 3);
  m_tasks.RemoveTask(9);
  EXPECT_EQ(CurrentId(), 3);
  m_tasks.RemoveTask(1);
  EXPECT_EQ(CurrentId(), 2);
  m_tasks.RemoveTask(3);
  EXPECT_EQ(CurrentId(), 2);
  m_tasks.RemoveTask(2);
  EXPECT_EQ(CurrentId(), -1);
}

TEST_F(TaskManagerTest, AfterCancelAllThereIsNoCurrentJob) {
  Add(1);
  Add(2);
  EXPECT_EQ(m_tasks.CancelAllTasks(), 1);
  EXPECT_EQ(m_tasks.count(), 0);
  EXPECT_EQ(CurrentId(), -1);
  EXPECT_EQ(m_tasks.CancelAllTasks(), 1);  // the position is left as it was
}

TEST_F(TaskManagerTest, PositionIsZeroAtFirstAndAfterTheLastRemoval) {
  EXPECT_EQ(m_tasks.CancelAllTasks(), 0);
  Add(7);
  m_tasks.RemoveTask(7);
  EXPECT_EQ(m_tasks.CancelAllTasks(), 0);
}

TEST_F(TaskManagerTest, PositionIsTheRowCountAfterAnAdd) {
  ASSERT_EQ(Add(7), 7);
  ASSERT_EQ(Add(7), 7);  // has removed the only row
  EXPECT_EQ(m_tasks.CancelAllTasks(), 1);
  EXPECT_EQ(m_tasks.count(), 0);
}

TEST_F(TaskManagerTest, PositionIsTheRowCountAfterAnAddThatStartsNothing) {
  EXPECT_EQ(Add(0), -1);  // no id that a job takes
  EXPECT_EQ(m_tasks.count(), 1);
  EXPECT_EQ(m_tasks.CancelAllTasks(), 1);
  EXPECT_EQ(m_tasks.count(), 0);
}

TEST_F(TaskManagerTest, PositionTakesTheIdOfEveryRemoval) {
  m_tasks.RemoveTask(5);
  EXPECT_EQ(m_tasks.CancelAllTasks(), 1);
  Add(1);
  m_tasks.RemoveTask(0);
  EXPECT_EQ(m_tasks.CancelAllTasks(), 0);
  EXPECT_EQ(m_tasks.count(), 1);
}

TEST_F(TaskManagerTest, PositionIsOneLessWhenTheLastRowGoes) {
  Add(2);
  Add(1);
  m_tasks.RemoveTask(1);
  EXPECT_EQ(m_tasks.CancelAllTasks(), 0);
  Add(1);
  m_tasks.RemoveTask(2);  // not the last row: the position stays 2
  EXPECT_EQ(m_tasks.CancelAllTasks(), 1);
}

TEST_F(TaskManagerTest, EndStopsTasksWhateverThePositionSays) {
  {
    CTaskManager tasks(&m_observer);
    tasks.AddTask(m_server.Url("/slow").c_str(), m_folder.path().c_str(), L"", 1, L"", L"", 0);
    ASSERT_TRUE(m_gate.AwaitArrivals());
    tasks.RemoveTask(0);
    ASSERT_EQ(tasks.CancelAllTasks(), 0);
  }
  const std::size_t told = m_observer.Events().size();
  m_gate.Open();
  test::AwaitThreads(m_threads);
  EXPECT_EQ(m_observer.Events().size(), told);
  EXPECT_EQ(m_observer.EventsOf(kEventFinished).size(), 0u);
}

TEST_F(TaskManagerTest, PauseAndRemovalAreSilent) {
  Add(7);
  ASSERT_TRUE(m_gate.AwaitArrivals());
  m_tasks.PauseTask(7);
  const std::size_t told = m_observer.Events().size();
  m_gate.Open();
  test::AwaitThreads(m_threads);
  EXPECT_EQ(m_observer.Events().size(), told);
  m_tasks.RemoveTask(7);
  EXPECT_EQ(m_observer.Events().size(), told);
  EXPECT_TRUE(m_observer.EventsOf(kEventFinished).empty());
}

TEST_F(TaskManagerTest, NullFolderIsTheTemporaryOneInTheRowAndRefusedByTheJob) {
  EXPECT_EQ(m_tasks.AddTask(m_server.Url("/f").c_str(), nullptr, L"", 7, L"", L"", 0), -1);
  TaskReading reading;
  ASSERT_TRUE(m_tasks.ReadTask(7, reading));
  EXPECT_EQ(reading.folder, os::TempFolder(1040));
}

TEST_F(TaskManagerTest, TaskWithoutAnyFolderKeepsItsRowAndIsNotTriedAtAll) {
  const test::LogReader log;
  const OtherTempFolder too_long(std::wstring(1100, L'x'));
  ASSERT_FALSE(os::TempFolder(1040));
  EXPECT_EQ(m_tasks.AddTask(m_server.Url("/f").c_str(), nullptr, L"", 7, L"", L"", 0), -1);
  EXPECT_EQ(m_tasks.count(), 1);
  TaskReading reading;
  ASSERT_TRUE(m_tasks.ReadTask(7, reading));
  EXPECT_EQ(reading.folder, L"");
  EXPECT_EQ(log.LinesOfThisThread(), std::vector<std::string>());
}

TEST_F(TaskManagerTest, TaskWithoutAFolderIsContinuedIntoTheTemporaryOne) {
  constexpr wchar_t kName[] = L"tarnlo_task_without_a_folder.bin";
  const std::wstring file = os::TempFolder(1040).value() + kName;
  os::RemoveFile(file);
  EXPECT_EQ(m_tasks.AddTask(m_server.Url("/f").c_str(), nullptr, kName, 7, L"", L"", 0), -1);
  EXPECT_EQ(m_tasks.ContinueTask(7), 1);
  AwaitFinish();
  EXPECT_EQ(test::FileDifference(file, Body(100'000)), "");
  EXPECT_TRUE(os::RemoveFile(file));
}

// Of each text one that just fits and one that does not.
class TaskTextsTest : public TaskManagerTest {
 protected:
  std::int32_t AddTexts(const std::wstring& url, const std::wstring& folder,
                        const std::wstring& name) {
    return m_tasks.AddTask(url.c_str(), folder.c_str(), name.c_str(), 7, L"", L"", 0);
  }
};

TEST_F(TaskTextsTest, TextsThatFitAreKeptWhole) {
  std::wstring url = L"http://127.0.0.1:1/";
  url.resize(2047, L'u');
  const std::wstring folder(2047, L'f');
  const std::wstring name(1023, L'n');
  AddTexts(url, folder, name);
  TaskReading reading;
  ASSERT_TRUE(m_tasks.ReadTask(7, reading));
  EXPECT_EQ(reading.url, url);
  EXPECT_EQ(reading.folder, folder);
  EXPECT_EQ(reading.file_name, name);
}

TEST_F(TaskTextsTest, TextsThatDoNotFitAreRefusedBeforeAnythingIsRemoved) {
  const std::wstring url = m_server.Url("/slow");
  ASSERT_EQ(AddTexts(url, m_folder.path(), L""), 7);
  EXPECT_EQ(AddTexts(std::wstring(2048, L'u'), m_folder.path(), L""), -1);
  EXPECT_EQ(AddTexts(url, std::wstring(2048, L'f'), L""), -1);
  EXPECT_EQ(AddTexts(url, m_folder.path(), std::wstring(1024, L'n')), -1);
  TaskReading reading;
  ASSERT_TRUE(m_tasks.ReadTask(7, reading));
  EXPECT_EQ(reading.url, url);
}

TEST_F(TaskTextsTest, BuffersGetWhatFitsAndATerminator) {
  ASSERT_EQ(AddTexts(m_server.Url("/slow"), m_folder.path(), L"name.bin"), 7);
  std::array<wchar_t, 5> cut;
  std::array<wchar_t, 9> exact;
  std::array<wchar_t, 1> none;
  cut.fill(L'#');
  exact.fill(L'#');
  none.fill(L'#');
  EXPECT_EQ(m_tasks.GetTaskTexts(7, cut, none, exact), 0);
  EXPECT_EQ(std::wstring(cut.data()), L"http");
  EXPECT_EQ(std::wstring(none.data()), L"");
  EXPECT_EQ(std::wstring(exact.data()), L"name.bin");
}

TEST_F(TaskTextsTest, BuffersOfAnUnknownTaskStayAsTheyAre) {
  std::array<wchar_t, 2> buffer = {L'#', L'#'};
  EXPECT_EQ(m_tasks.GetTaskTexts(7, buffer, {}, {}), 0);
  EXPECT_EQ(buffer[0], L'#');
}

}  // namespace
}  // namespace Tarnlo
