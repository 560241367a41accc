// A host that links the import library and uses nothing but the exports. The disabled tests are
// processes of their own.
#include <gtest/gtest.h>

#include <atomic>
#include <barrier>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <regex>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "api/tarnlo.h"
#include "tests/abi/host_record.h"
#include "tests/abi/pe_tables.h"
#include "tests/support/child_process.h"
#include "tests/support/fault_server.h"
#include "tests/support/gate.h"
#include "tests/support/temp_folder.h"

namespace Tarnlo {
namespace {

using test::HostRecord;

constexpr std::int64_t kSize = 600'000;

void SetCallbacks() {
  set_callback_start(&HostRecord::Start);
  set_callback_process(&HostRecord::Progress);
  set_callback_complete(&HostRecord::Complete);
  set_callback_fail(&HostRecord::Fail);
}

std::string Narrow(const std::wstring& ascii) {
  return {ascii.begin(), ascii.end()};
}

class AbiTest : public testing::Test {
 protected:
  AbiTest() {
    m_server.Serve("/f", m_body);
    m_server.Serve("/stalled", m_body).StallingAfter(1000, m_gate);
    SetCallbacks();
  }
  ~AbiTest() override {
    for (std::int32_t id = 1; id <= 20; ++id) cancel_task(id);
    m_record.Clear();
  }

  [[nodiscard]] Task TaskOf(std::int32_t id, const std::string& path) const {
    Task task;
    task.save_dir = m_folder.path();
    task.url = Narrow(m_server.Url(path));
    task.id = id;
    return task;
  }
  std::int32_t Create(std::int32_t id, const std::string& path) {
    const Task task = TaskOf(id, path);
    return create_task(&task);
  }
  void ExpectFile(const std::wstring& name) const {
    EXPECT_EQ(test::FileDifference(m_folder.File(name), m_body), "");
  }

  const test::Body m_body{kSize};
  test::Gate m_gate;
  test::TempFolder m_folder;
  test::FaultServer m_server;
  HostRecord& m_record = HostRecord::Get();
};

// --- Before the first task

// What answers the same before the first task and after it.
void ExpectTheRest() {
  EXPECT_TRUE(cancel_all_task());
  EXPECT_EQ(get_all_tasks(), "");
  EXPECT_EQ(fntarnlo(), 0);
  EXPECT_EQ(ntarnlo, 0);
  const Ctarnlo one;
  Ctarnlo other;
  EXPECT_EQ(&(other = one), &other);
}

TEST(AbiChild, DISABLED_BeforeTheFirstTask) {
  SetCallbacks();
  for (const std::int32_t id : {1, 0, -1}) {
    EXPECT_FALSE(cancel_task(id));
    EXPECT_FALSE(pause_task(id));
    EXPECT_FALSE(continue_task(id));
  }
  ExpectTheRest();
}

TEST(StartTest, NothingIsStartedBeforeTheFirstTask) {
  const test::TempFolder temp;
  EXPECT_EQ(test::RunTestInChild("AbiChild.DISABLED_BeforeTheFirstTask", temp.path()), 0);
  EXPECT_TRUE(temp.Names().empty());  // no log
}

TEST(AbiChild, DISABLED_FirstTaskIsRefused) {
  const Task task;
  EXPECT_EQ(create_task(&task), -1);
  EXPECT_TRUE(cancel_task(1));
  EXPECT_TRUE(pause_task(1));
  EXPECT_FALSE(continue_task(1));
}

TEST(StartTest, FirstTaskStartsTheLibraryThoughItIsRefused) {
  const test::TempFolder temp;
  EXPECT_EQ(test::RunTestInChild("AbiChild.DISABLED_FirstTaskIsRefused", temp.path()), 0);
  EXPECT_FALSE(temp.Names().empty());  // the log
}

TEST_F(AbiTest, DISABLED_SixteenFirstTasks) {
  constexpr std::int32_t kThreads = 16;
  std::vector<test::TempFolder> folders(kThreads + 1);
  std::atomic<bool> starting{true};
  // A call that races the start finds the library not started or whole, and from then on whole.
  std::vector<std::jthread> others;
  for (int i = 0; i < 4; ++i) {
    others.emplace_back([&starting] {
      bool whole = false;
      while (starting) {
        const bool now = pause_task(99);
        EXPECT_TRUE(now || !whole);
        whole = now;
        EXPECT_FALSE(continue_task(99));
      }
    });
  }
  {
    std::barrier barrier(kThreads);
    std::vector<std::jthread> threads;
    for (std::int32_t id = 1; id <= kThreads; ++id) {
      threads.emplace_back([&, id] {
        Task task = TaskOf(id, "/f");
        task.save_dir = folders.at(static_cast<std::size_t>(id)).path();
        barrier.arrive_and_wait();
        EXPECT_EQ(create_task(&task), id);
        EXPECT_TRUE(pause_task(99));  // started now
      });
    }
  }
  starting = false;
  for (std::int32_t id = 1; id <= kThreads; ++id) {
    EXPECT_TRUE(m_record.Await("complete " + std::to_string(id)));
    EXPECT_EQ(test::FileDifference(folders.at(static_cast<std::size_t>(id)).File(L"f"), m_body),
              "");
  }
}

TEST(StartTest, SixteenThreadsCreateTheirFirstTasksTogether) {
  for (int turn = 0; turn < 3; ++turn) {
    const test::TempFolder temp;
    EXPECT_EQ(test::RunTestInChild("AbiTest.DISABLED_SixteenFirstTasks", temp.path()), 0);
  }
}

// --- Tasks

TEST_F(AbiTest, TaskIsDownloadedAndToldFromStartToEnd) {
  ASSERT_EQ(Create(1, "/f"), 1);
  ASSERT_TRUE(m_record.Await("complete 1"));
  const std::vector<std::string> notes = m_record.Notes();
  EXPECT_EQ(notes.front(), "start 1");
  EXPECT_EQ(notes.back(), "complete 1");
  EXPECT_EQ(m_record.Count("start 1"), 1);
  EXPECT_EQ(m_record.Count("fail "), 0);
  EXPECT_EQ(static_cast<std::size_t>(m_record.Count("progress 1 600000")) + 2, notes.size());
  EXPECT_FALSE(m_record.WasOn(std::this_thread::get_id()));
  ExpectFile(L"f");
}

TEST_F(AbiTest, FailureIsToldWithItsResult) {
  ASSERT_EQ(Create(1, "/missing"), 1);
  ASSERT_TRUE(m_record.Await("fail 1 5"));
  EXPECT_EQ(m_record.Count("complete 1"), 0);
}

TEST_F(AbiTest, FalseMd5FailsAndTheFileGoes) {
  Task task = TaskOf(1, "/f");
  task.md5 = "00112233445566778899AABBCCDDEEFF";
  ASSERT_EQ(create_task(&task), 1);
  ASSERT_TRUE(m_record.Await("fail 1 11"));
  EXPECT_FALSE(test::FileExists(m_folder.File(L"f")));
}

TEST_F(AbiTest, EachFieldOfTheRecordReachesTheTask) {
  Task task = TaskOf(1, "/f");
  task.save_dir = m_folder.MakeFolder(L"gr\u00FC\u00DFe \u65E5\u672C");
  task.md5 = "00112233445566778899aabbccddeeff,b4e6a74662c3cce56e54ea80855a48a3";
  task.reserved = -1;
  ASSERT_EQ(create_task(&task), 1);
  ASSERT_TRUE(m_record.Await("complete 1"));
  EXPECT_EQ(test::FileDifference(task.save_dir + L"\\f", m_body), "");
}

// The DLL is a file with a version, in the way of the one that is asked for.
TEST_F(AbiTest, VersionOfTheFileThatIsThereDecides) {
  const std::filesystem::path there = m_folder.File(L"f");
  std::filesystem::copy_file(test::FileOfModule(L"tarnlo.dll"), there);
  const std::string before = test::ReadFileBytes(there);
  Task task = TaskOf(1, "/f");
  task.version = "0.0.0";
  ASSERT_EQ(create_task(&task), 1);
  ASSERT_TRUE(m_record.Await("complete 1"));
  EXPECT_TRUE(test::ReadFileBytes(there) == before);
  task.version = "60000.0.0";
  ASSERT_EQ(create_task(&task), 1);
  ASSERT_TRUE(m_record.Await("complete 1", 2));
  ExpectFile(L"f");
}

TEST_F(AbiTest, TasksThatCannotStartAreRefused) {
  Task task = TaskOf(1, "/f");
  task.url.clear();
  EXPECT_EQ(create_task(&task), -1);
  task = TaskOf(1, "/f");
  task.save_dir.clear();
  EXPECT_EQ(create_task(&task), -1);
  EXPECT_EQ(Create(0, "/f"), -1);
  EXPECT_EQ(Create(-5, "/f"), -1);
  task = TaskOf(1, "/f");
  task.url.assign(2048, 'u');
  EXPECT_EQ(create_task(&task), -1);
  EXPECT_TRUE(m_record.Notes().empty());
}

TEST_F(AbiTest, UnknownIdsArePausedAndCancelledAndNotContinued) {
  ASSERT_EQ(Create(1, "/f"), 1);
  EXPECT_TRUE(pause_task(15));
  EXPECT_TRUE(cancel_task(15));
  EXPECT_FALSE(continue_task(15));
}

TEST_F(AbiTest, TheRestAnswersAfterTheFirstTaskAsBefore) {
  ASSERT_EQ(Create(1, "/f"), 1);
  ExpectTheRest();
}

TEST_F(AbiTest, PausedTaskIsSilentAndGoesOn) {
  ASSERT_EQ(Create(1, "/stalled"), 1);
  ASSERT_TRUE(m_gate.AwaitArrivals(6));
  EXPECT_TRUE(pause_task(1));
  const std::size_t notes = m_record.Notes().size();
  m_gate.Open();
  EXPECT_EQ(m_record.Notes().size(), notes);
  EXPECT_TRUE(continue_task(1));
  ASSERT_TRUE(m_record.Await("complete 1"));
  EXPECT_EQ(m_record.Count("start 1"), 2);
  ExpectFile(L"stalled");
}

TEST_F(AbiTest, TaskThatRunsIsContinuedWithoutANewStart) {
  ASSERT_EQ(Create(1, "/stalled"), 1);
  ASSERT_TRUE(m_gate.AwaitArrivals(6));
  EXPECT_TRUE(continue_task(1));
  m_gate.Open();
  ASSERT_TRUE(m_record.Await("complete 1"));
  EXPECT_EQ(m_record.Count("start 1"), 1);
}

TEST_F(AbiTest, CancelledTaskIsForgottenAndItsPartialFileStays) {
  ASSERT_EQ(Create(1, "/stalled"), 1);
  ASSERT_TRUE(m_gate.AwaitArrivals(6));
  EXPECT_TRUE(cancel_task(1));
  EXPECT_FALSE(continue_task(1));
  EXPECT_TRUE(test::FileExists(m_folder.File(L"stalled.~P2S")));
  EXPECT_EQ(m_record.Count("fail "), 0);
}

TEST_F(AbiTest, IdThatIsThereIsReplaced) {
  ASSERT_EQ(Create(1, "/stalled"), 1);
  ASSERT_TRUE(m_gate.AwaitArrivals(6));
  ASSERT_EQ(Create(1, "/f"), 1);
  ASSERT_TRUE(m_record.Await("complete 1"));
  EXPECT_EQ(m_record.Count("start 1"), 2);
  ExpectFile(L"f");
}

TEST_F(AbiTest, CancelAllStopsNothing) {
  ASSERT_EQ(Create(1, "/stalled"), 1);
  ASSERT_EQ(Create(2, "/f"), 2);
  ASSERT_TRUE(m_gate.AwaitArrivals(6));
  EXPECT_TRUE(cancel_all_task());
  EXPECT_EQ(get_all_tasks(), "");
  m_gate.Open();
  EXPECT_TRUE(m_record.Await("complete 1"));
  EXPECT_TRUE(m_record.Await("complete 2"));
}

// --- Callbacks

TEST_F(AbiTest, NullCallbacksDropTheirEvents) {
  set_callback_start(nullptr);
  set_callback_process(nullptr);
  set_callback_fail(nullptr);
  ASSERT_EQ(Create(1, "/f"), 1);
  ASSERT_TRUE(m_record.Await("complete 1"));
  EXPECT_EQ(m_record.Notes(), std::vector<std::string>{"complete 1"});
}

TEST_F(AbiTest, CallbackThatIsReplacedGetsTheLaterEvents) {
  static std::atomic<std::int32_t> completed{0};
  ASSERT_EQ(Create(1, "/stalled"), 1);
  ASSERT_TRUE(m_gate.AwaitArrivals(6));
  set_callback_complete([](std::int32_t id) { completed = id; });
  m_gate.Open();
  while (completed == 0) std::this_thread::yield();
  EXPECT_EQ(completed, 1);
  EXPECT_EQ(m_record.Count("start 1"), 1);
  EXPECT_EQ(m_record.Count("complete 1"), 0);
}

TEST_F(AbiTest, CallbackThatThrowsIsLoggedAndTheTaskGoesOn) {
  m_record.on_start = [](std::int32_t) { throw std::runtime_error("the host's own trouble"); };
  m_record.on_progress = [](std::int32_t) { throw 5; };
  ASSERT_EQ(Create(1, "/f"), 1);
  ASSERT_TRUE(m_record.Await("complete 1"));
  ExpectFile(L"f");
  std::ifstream log(std::filesystem::temp_directory_path() / "tarnlo.log");
  const std::string text{std::istreambuf_iterator<char>(log), std::istreambuf_iterator<char>()};
  EXPECT_TRUE(std::regex_search(text, std::regex(R"(\[ERROR\] \d+ - CBmgr callback err 1\r?\n)")));
}

TEST_F(AbiTest, CallbackThatSleepsDelaysItsOwnTaskAlone) {
  test::Gate gate;
  m_record.on_start = [&gate](std::int32_t id) {
    const std::atomic<bool> never{false};
    if (id == 1) static_cast<void>(gate.Pass(never));
  };
  ASSERT_EQ(Create(1, "/f"), 1);
  ASSERT_TRUE(gate.AwaitArrivals());
  ASSERT_EQ(Create(2, "/stalled"), 2);
  m_gate.Open();
  EXPECT_TRUE(m_record.Await("complete 2"));
  EXPECT_EQ(m_record.Count("complete 1"), 0);
  gate.Open();
  EXPECT_TRUE(m_record.Await("complete 1"));
}

TEST_F(AbiTest, NextTaskIsCreatedFromInsideComplete) {
  m_record.on_complete = [this](std::int32_t id) {
    if (id == 4) return;
    EXPECT_EQ(Create(id + 1, "/f"), id + 1);
  };
  ASSERT_EQ(Create(1, "/f"), 1);
  EXPECT_TRUE(m_record.Await("complete 4"));
}

// On the task's own thread, in its first and its last callback, and on a connection's.
TEST_F(AbiTest, CallsForTheTaskItselfAreRefusedInsideItsCallbacks) {
  std::atomic<int> calls{0};
  std::atomic<int> refusals{0};
  const auto ask = [&](std::int32_t id) {
    ++calls;
    if (!pause_task(id)) ++refusals;
    if (!cancel_task(id)) ++refusals;
    if (Create(id, "/trickle") == -1) ++refusals;
    if (continue_task(id)) ++refusals;  // it runs
  };
  m_record.on_start = ask;
  m_record.on_progress = ask;
  m_record.on_complete = ask;
  m_server.Serve("/trickle", test::Body(6'000'000)).Trickling(1'500'000);
  ASSERT_EQ(Create(1, "/trickle"), 1);
  // The note comes first, then the call.
  ASSERT_TRUE(m_record.Await("complete 1"));
  while (calls < 3) std::this_thread::yield();
  while (refusals < 4 * calls) std::this_thread::yield();
  EXPECT_GE(m_record.Count("progress 1 "), 1);
  EXPECT_EQ(m_record.Count("start 1"), 1);
  EXPECT_EQ(m_record.Count("complete 1"), 1);
}

}  // namespace
}  // namespace Tarnlo
