// Tasks of a host: their life, and what each export answers about them.
#include <gtest/gtest.h>
#include <windows.h>

#include <cstdint>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "api/tarnlo.h"
#include "tests/abi/import_fixture.h"
#include "tests/abi/pe_tables.h"
#include "tests/support/temp_folder.h"

namespace Tarnlo {
namespace {

using test::AbiTest;

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

// The request and the name of the file have the character that the byte stands for there.
TEST_F(AbiTest, UrlIsReadInTheCodePageOfTheSystem) {
  ASSERT_EQ(GetACP(), 1252U);
  const std::string path = "/\x80.bin";
  m_server.Serve(path, m_body);
  Task task = TaskOf(1, "");
  task.url += path;
  ASSERT_EQ(create_task(&task), 1);
  ASSERT_TRUE(m_record.Await("complete 1"));
  ExpectFile(L"\u20AC.bin");
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
  test::ExpectTheRest();
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

}  // namespace
}  // namespace Tarnlo
