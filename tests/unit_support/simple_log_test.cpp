#include "support/simple_log.h"

#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <memory>
#include <regex>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "support/os/file.h"
#include "support/text.h"
#include "tests/support/temp_folder.h"
#include "tests/support/test_log.h"

namespace Tarnlo {
namespace {

const std::string kTime = R"(\[\d{4}-\d\d-\d\d (\d|1\d|2[0-3]):\d\d:\d\d\] )";

std::string RegexEscaped(const std::string& text) {
  return std::regex_replace(text, std::regex(R"([.^$|()\[\]{}*+?\\])"), R"(\$&)");
}

// Whether the bytes are whole lines with a time in front, of these texts.
testing::AssertionResult AreLines(const std::string& bytes, const std::vector<std::string>& texts) {
  std::string pattern;
  for (const std::string& text : texts) pattern += kTime + RegexEscaped(text) + "\r\n";
  if (std::regex_match(bytes, std::regex(pattern))) return testing::AssertionSuccess();
  return testing::AssertionFailure() << "written: " << bytes;
}

class SimpleLogTest : public testing::Test {
 protected:
  [[nodiscard]] std::string Written() const { return test::ReadFileBytes(m_path); }
  [[nodiscard]] std::string Backup(const std::wstring& suffix) const {
    return test::ReadFileBytes(m_path + suffix);
  }
  void Write(const std::string& text) { simpleLog::Log(&m_log, kLogInfo, "%s", text.c_str()); }

  test::TempFolder m_temp;
  const std::wstring m_path = m_temp.File(L"tarnlo.log");
  simpleLog m_log{WideToNarrow(m_path)};
};

TEST_F(SimpleLogTest, LineIsTimeTextAndLineEnd) {
  simpleLog::Log(&m_log, kLogInfo, "[INFO] %d - CDownloadManager Download 1", 4711);
  EXPECT_TRUE(AreLines(Written(), {"[INFO] 4711 - CDownloadManager Download 1"}));
}

TEST_F(SimpleLogTest, LinesFollowEachOther) {
  simpleLog::Log(&m_log, kLogInfo, "[INFO] %d - A %s", 1, "text");
  simpleLog::Log(&m_log, kLogWarn, "[WARN] %d - B %ld", 2, Low32(-5));
  simpleLog::Log(&m_log, kLogError, "[ERROR] %d - C", 3);
  EXPECT_TRUE(AreLines(Written(), {"[INFO] 1 - A text", "[WARN] 2 - B -5", "[ERROR] 3 - C"}));
}

TEST_F(SimpleLogTest, LevelShowsInTheFormatAlone) {
  for (const int level : {-1, 0, 1, 2, 3, 99}) simpleLog::Log(&m_log, level, "x");
  EXPECT_TRUE(AreLines(Written(), {"x", "x", "x", "x", "x", "x"}));
}

TEST_F(SimpleLogTest, NullLoggerWritesNothing) {
  simpleLog::Log(nullptr, kLogInfo, "[INFO] %d - lost", 1);
  EXPECT_TRUE(m_temp.Names().empty());
}

TEST_F(SimpleLogTest, NothingIsMadeBeforeTheFirstLine) {
  EXPECT_TRUE(m_temp.Names().empty());
  EXPECT_EQ(m_log.path(), WideToNarrow(m_path));
}

TEST_F(SimpleLogTest, LongLineIsCutAtItsBoundWithItsLineEnd) {
  Write(std::string(100'000, 'x'));
  const std::string written = Written();
  EXPECT_EQ(written.size(), 4096U);
  EXPECT_TRUE(written.ends_with("xx\r\n"));
  Write("next");
  EXPECT_TRUE(AreLines(Written().substr(4096), {"next"}));
}

TEST_F(SimpleLogTest, LineEndInsideTheTextIsThatOfATextFile) {
  Write("a\nb");
  EXPECT_TRUE(AreLines(Written(), {"a\r\nb"}));
}

TEST_F(SimpleLogTest, FileThatCannotBeOpenedLosesTheLineAndLoggingGoesOn) {
  Write("before");
  {
    const os::File holder = os::File::Open(m_path, os::FileAccess::kRead, os::FileShare::kNone,
                                           os::FileCreation::kOpenExisting);
    ASSERT_TRUE(holder.valid());
    Write("lost");
    Write("lost too");
  }
  Write("after");
  EXPECT_TRUE(AreLines(Written(), {"before", "after"}));
}

TEST_F(SimpleLogTest, FileMayBeMovedBetweenTwoLines) {
  Write("first");
  ASSERT_EQ(os::RenameNew(m_path, m_temp.File(L"moved")), os::RenameNewResult::kDone);
  Write("second");
  EXPECT_TRUE(AreLines(Written(), {"second"}));
  EXPECT_TRUE(AreLines(test::ReadFileBytes(m_temp.File(L"moved")), {"first"}));
}

TEST_F(SimpleLogTest, FolderThatIsMissingLosesLinesSilently) {
  simpleLog log(WideToNarrow(m_temp.File(L"missing\\tarnlo.log")));
  testing::internal::CaptureStdout();
  simpleLog::Log(&log, kLogInfo, "lost");
  EXPECT_TRUE(log.BackUpWhenDue(os::LocalTime{2024, 5, 31, 23, 0, 0}));
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
  EXPECT_TRUE(m_temp.Names().empty());
}

TEST_F(SimpleLogTest, EmptyPathComplainsAndLosesLines) {
  testing::internal::CaptureStdout();
  simpleLog log("");
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "[simpleLog::Log] log filename is empty\n");
  simpleLog::Log(&log, kLogInfo, "lost");
  EXPECT_TRUE(log.BackUpWhenDue(os::LocalTime{2024, 5, 31, 23, 0, 0}));
}

TEST_F(SimpleLogTest, LinesOfManyThreadsNeverMix) {
  constexpr int kThreads = 8;
  constexpr int kLines = 100;
  {
    std::vector<std::jthread> threads;
    for (int i = 0; i < kThreads; ++i) {
      threads.emplace_back([this, i] {
        for (int line = 0; line < kLines; ++line) {
          const std::string text(static_cast<std::size_t>(20 + 30 * i), static_cast<char>('a' + i));
          simpleLog::Log(&m_log, kLogInfo, "%d %d %s.", i, line, text.c_str());
        }
      });
    }
  }
  const std::regex whole(kTime + R"((\d) (\d+) ([a-h]+)\.)");
  std::vector<int> next(kThreads);
  for (const std::string& line : test::LinesIn(Written())) {
    std::smatch parts;
    ASSERT_TRUE(std::regex_match(line, parts, whole));
    const auto thread = static_cast<std::size_t>(std::stoi(parts[2]));
    EXPECT_EQ(std::stoi(parts[3]), next.at(thread)++);
    EXPECT_EQ(parts[4], std::string(20 + 30 * thread, static_cast<char>('a' + thread)));
  }
  EXPECT_EQ(next, std::vector<int>(kThreads, kLines));
}

TEST_F(SimpleLogTest, PathIsTheFileInTheFolderWithOneBackslash) {
  EXPECT_EQ(simpleLog::PathIn(L"C:\\Temp"), L"C:\\Temp\\tarnlo.log");
  EXPECT_EQ(simpleLog::PathIn(L"C:\\Temp\\"), L"C:\\Temp\\tarnlo.log");
  EXPECT_EQ(simpleLog::PathIn(L""), L"");
}

TEST_F(SimpleLogTest, LowBitsOfALongNumberAreKept) {
  EXPECT_EQ(Low32(0), 0);
  EXPECT_EQ(Low32(-1), -1);
  EXPECT_EQ(Low32(4'294'967'296 + 7), 7);
  EXPECT_EQ(Low32(2'147'483'648), -2'147'483'647L - 1);
}

// The backup, on days of the test's choice.
class LogBackupTest : public SimpleLogTest {
 protected:
  static os::LocalTime At(int hour) { return os::LocalTime{2024, 5, 31, hour, 59, 59}; }
};

TEST_F(LogBackupTest, OtherHoursMoveNothing) {
  Write("line");
  for (int hour = 0; hour < 23; ++hour) EXPECT_FALSE(m_log.BackUpWhenDue(At(hour)));
  EXPECT_EQ(m_temp.Names(), (std::vector<std::wstring>{L"tarnlo.log"}));
}

TEST_F(LogBackupTest, LastHourMovesTheFileAndMakesItAnew) {
  Write("line");
  EXPECT_TRUE(m_log.BackUpWhenDue(At(23)));
  EXPECT_EQ(m_temp.Names(), (std::vector<std::wstring>{L"tarnlo.log", L"tarnlo.log.2024-05-31"}));
  EXPECT_EQ(Written(), "");
  EXPECT_TRUE(AreLines(Backup(L".2024-05-31"), {"line"}));
}

TEST_F(LogBackupTest, DateHasLeadingZeroes) {
  Write("line");
  EXPECT_TRUE(m_log.BackUpWhenDue(os::LocalTime{2030, 1, 2, 23, 0, 0}));
  EXPECT_TRUE(AreLines(Backup(L".2030-01-02"), {"line"}));
}

TEST_F(LogBackupTest, EmptyFileAndNoFileStay) {
  EXPECT_TRUE(m_log.BackUpWhenDue(At(23)));
  EXPECT_TRUE(m_temp.Names().empty());
  test::WriteFileBytes(m_path, "");
  EXPECT_TRUE(m_log.BackUpWhenDue(At(23)));
  EXPECT_EQ(m_temp.Names(), (std::vector<std::wstring>{L"tarnlo.log"}));
}

TEST_F(LogBackupTest, LaterBackupsOfADateAreCounted) {
  for (int i = 1; i <= 12; ++i) {
    Write("backup " + std::to_string(i));
    EXPECT_TRUE(m_log.BackUpWhenDue(At(23)));
  }
  EXPECT_TRUE(AreLines(Backup(L".2024-05-31"), {"backup 1"}));
  EXPECT_TRUE(AreLines(Backup(L".2024-05-31.1"), {"backup 2"}));
  EXPECT_TRUE(AreLines(Backup(L".2024-05-31.2"), {"backup 3"}));
  EXPECT_TRUE(AreLines(Backup(L".2024-05-31.10"), {"backup 11"}));
  EXPECT_TRUE(AreLines(Backup(L".2024-05-31.11"), {"backup 12"}));
  EXPECT_EQ(m_temp.Names().size(), 13U);
}

TEST_F(LogBackupTest, FirstFreeNameIsTaken) {
  test::WriteFileBytes(m_path + L".2024-05-31", "mine");
  test::WriteFileBytes(m_path + L".2024-05-31.2", "mine too");
  Write("line");
  EXPECT_TRUE(m_log.BackUpWhenDue(At(23)));
  EXPECT_TRUE(AreLines(Backup(L".2024-05-31.1"), {"line"}));
  EXPECT_EQ(Backup(L".2024-05-31"), "mine");
  EXPECT_EQ(Backup(L".2024-05-31.2"), "mine too");
}

TEST_F(LogBackupTest, NameThatOnlySeemsFreeIsPassedOver) {
  test::WriteFileBytes(m_path + L".2024-05-31", "mine");
  Write("line");
  {
    const os::File holder = os::File::Open(m_path + L".2024-05-31", os::FileAccess::kRead,
                                           os::FileShare::kNone, os::FileCreation::kOpenExisting);
    ASSERT_TRUE(holder.valid());
    EXPECT_TRUE(m_log.BackUpWhenDue(At(23)));
  }
  EXPECT_EQ(Backup(L".2024-05-31"), "mine");
  EXPECT_TRUE(AreLines(Backup(L".2024-05-31.1"), {"line"}));
}

TEST_F(LogBackupTest, HandleThatSharesDeletionDoesNotStopTheMove) {
  Write("line");
  const os::File holder =
      os::File::Open(m_path, os::FileAccess::kWrite, os::FileShare::kReadWriteDelete,
                     os::FileCreation::kOpenExisting);
  ASSERT_TRUE(holder.valid());
  EXPECT_TRUE(m_log.BackUpWhenDue(At(23)));
  EXPECT_TRUE(AreLines(Backup(L".2024-05-31"), {"line"}));
  EXPECT_EQ(Written(), "");
}

TEST_F(LogBackupTest, FileThatCannotBeMovedKeepsItsLines) {
  Write("line");
  {
    const os::File holder = os::File::Open(m_path, os::FileAccess::kRead, os::FileShare::kReadWrite,
                                           os::FileCreation::kOpenExisting);
    testing::internal::CaptureStdout();
    EXPECT_TRUE(m_log.BackUpWhenDue(At(23)));
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    Write("next");
  }
  EXPECT_TRUE(AreLines(Written(), {"line", "next"}));
  EXPECT_EQ(m_temp.Names().size(), 1U);
}

TEST_F(LogBackupTest, FileThatCannotBeMadeAnewIsComplainedAbout) {
  Write("line");
  const os::File holder = os::File::Open(m_path, os::FileAccess::kRead, os::FileShare::kRead,
                                         os::FileCreation::kOpenExisting);
  testing::internal::CaptureStdout();
  EXPECT_TRUE(m_log.BackUpWhenDue(At(23)));
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            "[simpleLog::Log] Cannot open the output file: " + m_log.path());
  EXPECT_TRUE(AreLines(Written(), {"line"}));
}

TEST_F(LogBackupTest, LinesWrittenDuringBackupsAreAllKept) {
  constexpr int kLines = 300;
  std::jthread writer([this] {
    for (int line = 0; line < kLines; ++line) Write("line " + std::to_string(line));
  });
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
  while (test::LinesIn(Written()).empty() && std::chrono::steady_clock::now() < deadline) {
    std::this_thread::yield();
  }
  for (int i = 0; i < 20; ++i) m_log.BackUpWhenDue(At(23));
  writer.join();
  const std::regex whole(kTime + "line \\d+");
  std::size_t count = 0;
  for (const std::wstring& name : m_temp.Names()) {
    for (const std::string& line : test::LinesIn(test::ReadFileBytes(m_temp.File(name)))) {
      EXPECT_TRUE(std::regex_match(line, whole)) << line;
      ++count;
    }
  }
  EXPECT_EQ(count, static_cast<std::size_t>(kLines));
}

TEST_F(LogBackupTest, LoggerThatNeverStartedBackupsMovesNothingAtItsEnd) {
  const std::wstring path = m_temp.File(L"other.log");
  {
    simpleLog log(WideToNarrow(path));
    simpleLog::Log(&log, kLogInfo, "line");
  }
  EXPECT_EQ(m_temp.Names(), (std::vector<std::wstring>{L"other.log"}));
}

TEST_F(LogBackupTest, LoggerThatStartedBackupsMovesItsFileAtItsEndOnce) {
  {
    simpleLog log(WideToNarrow(m_path));
    simpleLog::Log(&log, kLogInfo, "line");
    log.StartBackups();
    log.StartBackups();
    log.ShutDown();
    simpleLog::Log(&log, kLogInfo, "later");
  }
  EXPECT_TRUE(AreLines(Written(), {"later"}));
  const auto names = m_temp.Names();
  ASSERT_GE(names.size(), 2U);  // three in the last hour of a day
  EXPECT_TRUE(
      std::regex_match(WideToNarrow(names[1]), std::regex(R"(tarnlo\.log\.\d{4}-\d\d-\d\d)")));
  EXPECT_TRUE(AreLines(test::ReadFileBytes(m_temp.File(names[1])), {"line"}));
}

TEST(LogRestTest, LookIsFollowedByFiveMinutesAndOneInTheHourByTwoHoursMore) {
  struct Case {
    std::function<bool()> look;
    std::uint32_t rest_ms;
    std::string printed;
  };
  const Case cases[] = {
      {[] { return false; }, 300'000, ""},
      {[] { return true; }, 7'500'000, ""},
      {[]() -> bool { throw std::runtime_error("no memory"); }, 300'000,
       "[simpleLog::Log] [dobackup] no memory\n"},
  };
  for (const Case& each : cases) {
    testing::internal::CaptureStdout();
    const std::uint32_t rest_ms = simpleLog::RestAfter(each.look);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), each.printed);
    EXPECT_EQ(rest_ms, each.rest_ms);
  }
}

TEST(ProcessLogTest, ShorthandsWriteLevelThreadAndMessage) {
  const test::LogReader log;
  LogInfo("DownloadEnd %d", 1);
  LogWarn("CCustomizeSocket Connect 3: %ld", Low32(16'777'343));
  LogError("CDownloadManager Download err %d", 4);
  const StepLog step("CDownloadManager Download");
  step(2);
  step.Error(3);
  EXPECT_EQ(log.LinesOfThisThread(), (std::vector<std::string>{
                                         "[INFO] DownloadEnd 1",
                                         "[WARN] CCustomizeSocket Connect 3: 16777343",
                                         "[ERROR] CDownloadManager Download err 4",
                                         "[INFO] CDownloadManager Download 2",
                                         "[ERROR] CDownloadManager Download err 3",
                                     }));
}

TEST(ProcessLogTest, StartedFromManyThreadsAtOnceThereIsOneLogger) {
  test::StartTestLog();
  std::vector<simpleLog*> seen(16);
  {
    std::vector<std::jthread> threads;
    for (simpleLog*& mine : seen) {
      threads.emplace_back([&mine] {
        simpleLog::Start();
        mine = simpleLog::Global();
      });
    }
  }
  EXPECT_EQ(seen, std::vector<simpleLog*>(16, simpleLog::Global()));
  EXPECT_NE(simpleLog::Global(), nullptr);
}

}  // namespace
}  // namespace Tarnlo
