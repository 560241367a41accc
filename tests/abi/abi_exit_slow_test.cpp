// Processes that end with transfers running, before the library has saved anything and after. The
// disabled tests are processes of their own.
#include <gtest/gtest.h>
#include <windows.h>

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>

#include "tests/abi/host_record.h"
#include "tests/abi/loaded_dll.h"
#include "tests/abi/told_task.h"
#include "tests/support/child_process.h"
#include "tests/support/fault_server.h"
#include "tests/support/log_backups.h"
#include "tests/support/partial_file.h"
#include "tests/support/system.h"
#include "tests/support/temp_folder.h"

namespace Tarnlo {
namespace {

using test::HostRecord;
using test::LoadedDll;
using test::PartialFile;

constexpr int kTransfers = 10;
constexpr int kFast = 2;  // of them
constexpr std::int32_t kUnknown = 99;
constexpr std::chrono::seconds kChildLimit{20};
constexpr std::uint32_t kLongestEndMs = 2500;  // half of what one job's stop may take

std::wstring Partial(int id) {
  std::wstring name = L"t";
  return name.append(std::to_wstring(id)).append(L".~P2S");
}

// --- The processes

void CreateToldTasks(const LoadedDll& dll) {
  dll.SetCallbacks();
  for (int id = 1; id <= kTransfers; ++id) {
    const Task task = test::ToldTask(id);
    ASSERT_EQ(dll.create_task(&task), id);
  }
}

// The next thing that this process does is to end.
void NoteTheEnd() {
  std::ofstream(test::LocalPath(test::ToldFolder() + L"end")) << GetTickCount();
}

bool HasCount(const std::wstring& path) {
  std::ifstream file(test::LocalPath(path), std::ios::binary);
  std::int32_t count = 0;
  file.seekg(-static_cast<std::streamoff>(sizeof count), std::ios::end);
  return file.read(reinterpret_cast<char*>(&count), sizeof count) && count != 0;
}

void AwaitProgressFrom(int first) {
  for (int id = first; id <= kTransfers; ++id) {
    std::string note = "progress " + std::to_string(id);
    ASSERT_TRUE(HostRecord::Get().Await(note += " "));
  }
}

TEST(SlowExitChild, DISABLED_EndsWithTransfersRunning) {
  static const LoadedDll dll;
  CreateToldTasks(dll);
  ASSERT_NO_FATAL_FAILURE(AwaitProgressFrom(1));
  NoteTheEnd();
}

TEST(SlowExitChild, DISABLED_EndsWhenAllAreSaved) {
  static const LoadedDll dll;
  CreateToldTasks(dll);
  for (int id = 1; id <= kTransfers; ++id) {
    while (!HasCount(test::ToldFolder() + Partial(id))) {
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
  }
  NoteTheEnd();
}

// What an operation locks stays locked by a thread that is gone: a task's callback holds up the one
// that stops it.
TEST(SlowExitChild, DISABLED_EndsInTheMiddleOfAnOperation) {
  static const LoadedDll dll;
  static HostRecord& record = HostRecord::Get();
  record.on_start = [](std::int32_t id) {
    if (id != 1) return;
    record.Note("may be stopped");
    // Answered until this task itself is being stopped.
    while (dll.cancel_task(kUnknown)) Sleep(1);
    record.Note("is being stopped");
    Sleep(INFINITE);
  };
  CreateToldTasks(dll);
  ASSERT_NO_FATAL_FAILURE(AwaitProgressFrom(2));
  ASSERT_TRUE(record.Await("may be stopped"));
  std::thread([] { dll.pause_task(1); }).detach();
  ASSERT_TRUE(record.Await("is being stopped"));
  NoteTheEnd();
}

TEST(SlowExitChild, DISABLED_FinishesTheTransfers) {
  const LoadedDll dll;
  CreateToldTasks(dll);
  for (int id = 1; id <= kTransfers; ++id) {
    EXPECT_TRUE(HostRecord::Get().Await("complete " + std::to_string(id)));
  }
}

// --- What they leave

class SlowExitTest : public testing::Test {
 protected:
  SlowExitTest() { ServeAFreshProcess(); }

  // Under paths of its own, with no files.
  void ServeAFreshProcess() {
    const std::string folder = "/" + std::to_string(++m_served);
    for (int id = 1; id <= kTransfers; ++id) {
      const test::Body& body = BodyOf(id);
      const std::string path = folder + "/t" + std::to_string(id);
      // A HEAD, the first request and a connection, which is done early and is given half of what
      // another has left.
      if (id == 1) m_server.Serve(path, body).Times(3);
      // What comes with the head is written and told at once.
      m_server.Serve(path, body).LeadingBody(1000).Trickling(id <= kFast ? 160'000 : 30'000);
      std::filesystem::remove(test::LocalPath(m_folder.File(Partial(id))));
    }
    test::Tell(m_server.Url(folder + "/t"), m_folder.path());
  }

  // A fast one writes while it runs; the others have not collected enough to write when their
  // trailers are saved.
  const test::Body& BodyOf(int id) const { return id <= kFast ? m_long_body : m_body; }

  // Ends a process with threads running. Under Wine, on a machine with much else to do, one in ten
  // never gets as far as the library's end: its last thread waits inside NtTerminateProcess for a
  // lock of Wine's own, which a thread that is gone had held. The log, which the library moves
  // aside first of all, is still in its place then; that process says nothing about the library,
  // and another is asked.
  void End(const std::string& how) {
    int result = test::kChildHung;
    for (int tries = 0; tries < 6 && result == test::kChildHung; ++tries) {
      if (tries > 0) ServeAFreshProcess();
      result = test::RunTestInChild("SlowExitChild.DISABLED_" + how, m_temp.path(), kChildLimit);
      if (result == test::kChildHung && LogIsEmpty()) break;
    }
    const DWORD now = GetTickCount();
    ASSERT_EQ(result, 0);
    const std::string began = test::ReadFileBytes(m_folder.File(L"end"));
    EXPECT_LT(now - static_cast<DWORD>(std::stoul(began)), kLongestEndMs);
  }
  [[nodiscard]] bool LogIsEmpty() const {
    return test::ReadFileBytes(m_temp.File(L"tarnlo.log")).empty();
  }
  [[nodiscard]] PartialFile Left(int id) const { return {m_folder.File(Partial(id)), BodyOf(id)}; }

  const test::Body m_body{3'000'000};
  const test::Body m_long_body{12'000'000};
  test::TempFolder m_folder;
  test::TempFolder m_temp;
  const test::LogBackups m_backups{m_temp};
  test::FaultServer m_server;
  int m_served = 0;  // processes, each with paths of its own
};

TEST_F(SlowExitTest, EndBeforeASaveLeavesPlainPartialFilesAndMovesTheLogAside) {
  for (std::size_t turn = 1; turn <= 3; ++turn) {
    End("EndsWithTransfersRunning");
    if (HasFatalFailure()) return;
    for (int id = 1; id <= kTransfers; ++id) EXPECT_EQ(Left(id).Fault(), "") << id;
    // The log of the process was moved aside, though its threads died in the middle of a line.
    EXPECT_TRUE(LogIsEmpty());
    m_backups.ExpectOf(turn);
  }
}

TEST_F(SlowExitTest, EndInTheMiddleOfAnOperationIsAsPrompt) {
  End("EndsInTheMiddleOfAnOperation");
  if (HasFatalFailure()) return;
  for (int id = 2; id <= kTransfers; ++id) EXPECT_EQ(Left(id).Fault(), "") << id;
  EXPECT_TRUE(LogIsEmpty());
  m_backups.ExpectOf(1);
}

TEST_F(SlowExitTest, EndAfterASaveLeavesTrailersThatHoldAndTheNextProcessGoesOnFromThem) {
  End("EndsWhenAllAreSaved");
  if (HasFatalFailure()) return;
  for (int id = 1; id <= kTransfers; ++id) {
    const PartialFile left = Left(id);
    EXPECT_FALSE(left.blank()) << id;
    EXPECT_EQ(left.Fault(), "") << id;
    EXPECT_GE(left.Claimed(), id <= kFast ? 1 : 0) << id;
    EXPECT_GE(left.InNoRecord(), id == 1 ? 1 : 0);
  }
  EXPECT_TRUE(LogIsEmpty());
  m_backups.ExpectOf(1);

  for (int id = 1; id <= kTransfers; ++id) {
    m_server.Serve("/all/t" + std::to_string(id), BodyOf(id));
  }
  test::Tell(m_server.Url("/all/t"), m_folder.path());
  ASSERT_EQ(test::RunTestInChild("SlowExitChild.DISABLED_FinishesTheTransfers", m_temp.path()), 0);
  for (int id = 1; id <= kTransfers; ++id) {
    EXPECT_EQ(test::FileDifference(m_folder.File(L"t" + std::to_wstring(id)), BodyOf(id)), "");
  }
}

}  // namespace
}  // namespace Tarnlo
