// The logger from a process's start to its end. The disabled tests are the child processes.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <map>
#include <regex>
#include <string>
#include <thread>
#include <vector>

#include "support/run_aside.h"
#include "support/simple_log.h"
#include "support/text.h"
#include "tests/support/child_process.h"
#include "tests/support/log_backups.h"
#include "tests/support/temp_folder.h"

namespace Tarnlo {
namespace {

constexpr int kThreads = 8;

TEST(LogChild, DISABLED_WritesTwoLines) {
  ASSERT_EQ(simpleLog::Global(), nullptr);
  LogInfo("too early");
  {
    std::vector<std::jthread> threads;
    for (int i = 0; i < kThreads; ++i) threads.emplace_back(simpleLog::Start);
  }
  LogInfo("first");
  LogInfo("second");
}

TEST(LogChild, DISABLED_WritesNothing) {}

TEST(LogChild, DISABLED_EndsWhileThreadsWrite) {
  simpleLog::Start();
  for (int i = 0; i < kThreads; ++i) {
    ASSERT_TRUE(StartDetached([i] {
      for (int line = 0;; ++line) LogInfo("thread %d line %d.", i, line);
    }));
  }
  for (int line = 0; line < 100; ++line) LogInfo("main line %d.", line);
}

class LogOfAProcessTest : public testing::Test {
 protected:
  void Run(const std::string& child) {
    EXPECT_EQ(test::RunTestInChild("LogChild.DISABLED_" + child, m_temp.path()), 0);
  }
  [[nodiscard]] std::string Read(const std::wstring& name) const {
    return test::ReadFileBytes(m_temp.File(name));
  }
  test::TempFolder m_temp;
  const test::LogBackups m_backups{m_temp};
};

TEST_F(LogOfAProcessTest, EndMovesTheLogAsideAndLeavesAnEmptyOne) {
  Run("WritesTwoLines");
  m_backups.ExpectOf(1);
  std::string lines;
  for (const std::wstring& name : m_backups.Names()) lines += Read(name);
  EXPECT_TRUE(test::FileExists(m_temp.File(L"tarnlo.log")));
  EXPECT_EQ(Read(L"tarnlo.log"), "");
  EXPECT_TRUE(std::regex_match(
      lines,
      std::regex(R"(\[[^\]]+\] \[INFO\] \d+ - first\r\n\[[^\]]+\] \[INFO\] \d+ - second\r\n)")))
      << lines;
}

TEST_F(LogOfAProcessTest, NextProcessCountsItsBackup) {
  Run("WritesTwoLines");
  Run("WritesTwoLines");
  Run("WritesTwoLines");
  m_backups.ExpectOf(3);
  // Each date counts for itself, since midnight may have come between two.
  std::map<std::wstring, std::int64_t> of_date;
  for (const std::wstring& name : m_backups.Names()) {
    const std::wstring dated = name.substr(0, std::wstring(L"tarnlo.log.2024-05-31").size());
    const std::int64_t count = of_date[dated]++;
    EXPECT_EQ(name, count == 0 ? dated : dated + L"." + NumberToWide(count));
  }
}

TEST_F(LogOfAProcessTest, ProcessThatNeverStartsItLeavesNothing) {
  Run("WritesNothing");
  EXPECT_TRUE(m_temp.Names().empty());
}

TEST_F(LogOfAProcessTest, EndWhileThreadsWriteIsPromptAndEveryLineIsWhole) {
  Run("EndsWhileThreadsWrite");
  EXPECT_GE(m_backups.Names().size(), 1U);
  const std::regex whole(R"(\[[^\]]+\] \[INFO\] \d+ - (main|thread \d) line \d+\.)");
  int main_lines = 0;
  for (const std::wstring& name : m_temp.Names()) {
    const std::string bytes = Read(name);
    for (std::size_t begin = 0; begin < bytes.size();) {
      const std::size_t end = bytes.find("\r\n", begin);
      ASSERT_NE(end, std::string::npos);
      const std::string line = bytes.substr(begin, end - begin);
      EXPECT_TRUE(std::regex_match(line, whole)) << line;
      main_lines += line.find("main") != std::string::npos;
      begin = end + 2;
    }
  }
  EXPECT_EQ(main_lines, 100);
}

}  // namespace
}  // namespace Tarnlo
