#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "support/os/file.h"
#include "support/os/file_version.h"
#include "support/os/path_form.h"
#include "tests/support/temp_folder.h"

namespace Tarnlo::os {
namespace {

constexpr const wchar_t* kProgram = L"C:\\windows\\system32\\kernel32.dll";

TEST(OsFileVersionTest, ProgramFileOfTheSystemHasOne) {
  const auto version = ReadFileVersion(kProgram);
  ASSERT_TRUE(version.has_value());
  EXPECT_GT((*version)[0], 0);
}

TEST(OsFileVersionTest, PathBeyondTheOldLimitIsRead) {
  const test::TempFolder temp;
  const std::wstring folder = temp.path() + std::wstring(200, L'f');
  std::filesystem::create_directory(CallForm(folder, 300));
  const std::wstring copy = folder + L"\\" + std::wstring(100, L'c') + L".dll";
  std::filesystem::copy_file(kProgram, CallForm(copy, 0));
  EXPECT_EQ(ReadFileVersion(copy), ReadFileVersion(kProgram));
  EXPECT_TRUE(RemoveFile(copy));
  std::filesystem::remove(CallForm(folder, 300));
}

}  // namespace
}  // namespace Tarnlo::os
