#include <gtest/gtest.h>

#include <ctime>
#include <string>

#include "support/os/clock.h"
#include "support/os/file_version.h"
#include "support/os/module.h"
#include "support/os/system_folders.h"
#include "support/os/window.h"
#include "tests/faults/faults.h"
#include "tests/support/temp_folder.h"

namespace Tarnlo::os {
namespace {

TEST(OsClockTest, TicksAdvanceWithSleep) {
  const std::uint32_t begin = TickMs();
  SleepMs(60);
  EXPECT_GE(TickMs() - begin, 40U);
}

TEST(OsClockTest, TimeHasElapsedOnceItIsOverAlsoAcrossTheWrap) {
  EXPECT_TRUE(HasElapsed(TickMs(), 0));
  EXPECT_TRUE(HasElapsed(TickMs() - 5'000, 5'000));
  EXPECT_FALSE(HasElapsed(TickMs(), 600'000));
  EXPECT_TRUE(HasElapsed(TickMs() + 600'000, 600'000));  // nearly 50 days ago
  test::Faults faults;
  faults.DivideIntervals(200'000);
  const std::uint32_t begin = TickMs();
  EXPECT_TRUE(HasElapsed(begin - 3, 600'000));
}

TEST(OsClockTest, LocalTimeIsTheTimeOfDay) {
  // Taken again when a second passed between the two looks.
  for (int round = 0; round < 100; ++round) {
    const std::int64_t seconds = UnixSeconds();
    const LocalTime now = LocalTimeNow();
    if (UnixSeconds() != seconds) continue;
    const auto time = static_cast<std::time_t>(seconds);
    const std::tm* const expected = std::localtime(&time);
    ASSERT_NE(expected, nullptr);
    if (now.second != expected->tm_sec) continue;  // the two clocks tick apart by a little
    EXPECT_EQ(now.year, expected->tm_year + 1900);
    EXPECT_EQ(now.month, expected->tm_mon + 1);
    EXPECT_EQ(now.day, expected->tm_mday);
    EXPECT_EQ(now.hour, expected->tm_hour);
    EXPECT_EQ(now.minute, expected->tm_min);
    return;
  }
  FAIL() << "the two clocks never agreed on the second";
}

TEST(OsSystemFoldersTest, TempFolderExistsAndEndsWithABackslash) {
  const auto folder = TempFolder(1040);
  ASSERT_TRUE(folder.has_value());
  EXPECT_EQ(folder->back(), L'\\');
  EXPECT_TRUE(test::FileExists(*folder));
  EXPECT_EQ(folder->find(L'\0'), std::wstring::npos);
}

TEST(OsSystemFoldersTest, TempFolderMustFitWithItsTerminator) {
  const auto folder = TempFolder(1040);
  ASSERT_TRUE(folder.has_value());
  EXPECT_EQ(TempFolder(folder->size() + 1), folder);
  EXPECT_EQ(TempFolder(folder->size()), std::nullopt);
  EXPECT_EQ(TempFolder(1), std::nullopt);
}

TEST(OsFileVersionTest, FileWithoutVersionGivesNothing) {
  const test::TempFolder temp;
  test::WriteFileBytes(temp.File(L"plain.exe"), "MZ and nothing else");
  EXPECT_EQ(ReadFileVersion(temp.File(L"plain.exe")), std::nullopt);
  EXPECT_EQ(ReadFileVersion(temp.File(L"missing.exe")), std::nullopt);
  EXPECT_EQ(ReadFileVersion(L""), std::nullopt);
}

TEST(OsWindowTest, WindowThatDoesNotExistTakesNoMessage) {
  int nothing = 0;
  EXPECT_FALSE(PostToWindow(&nothing, 0x0400, 0, 0));
}

TEST(OsModuleTest, ModuleCanBePinned) {
  EXPECT_TRUE(PinThisModule());
}

}  // namespace
}  // namespace Tarnlo::os
