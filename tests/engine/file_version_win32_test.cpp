// Version resources of real program files: version_sample.dll, which the build puts beside this
// program, and this program, which has none.
#include <gtest/gtest.h>
#include <windows.h>

#include <array>
#include <string>

#include "engine/file_version.h"

namespace Tarnlo {
namespace {

std::wstring ThisProgram() {
  std::array<wchar_t, 1024> path{};
  const DWORD length = GetModuleFileNameW(nullptr, path.data(), static_cast<DWORD>(path.size()));
  return {path.data(), length};
}

std::wstring Sample() {
  const std::wstring program = ThisProgram();
  return program.substr(0, program.find_last_of(L'\\') + 1) + L"version_sample.dll";
}

TEST(FileVersionResourceTest, FourNumbersOfTheFixedInformation) {
  EXPECT_EQ(GetFileVersionString(Sample()), L"2.40.65535.7");
}

TEST(FileVersionResourceTest, ProgramWithoutTheResourceHasNone) {
  EXPECT_EQ(GetFileVersionString(ThisProgram()), L"");
}

TEST(FileVersionResourceTest, RequiredVersionIsReachedNumberByNumber) {
  EXPECT_TRUE(CompareFileVersion(Sample(), L"2.40.65535"));
  EXPECT_TRUE(CompareFileVersion(Sample(), L"2.40.65535.8"));
  EXPECT_TRUE(CompareFileVersion(Sample(), L"1.39.0"));
  EXPECT_FALSE(CompareFileVersion(Sample(), L"1.41.0"));
  EXPECT_FALSE(CompareFileVersion(Sample(), L"3.0.0"));
  EXPECT_FALSE(CompareFileVersion(Sample(), L"2.40"));
  EXPECT_FALSE(CompareFileVersion(Sample(), L""));
}

}  // namespace
}  // namespace Tarnlo
