// Version resources of real program files: version_sample.dll, which the build puts beside this
// program, and this program, which has none.
#include <gtest/gtest.h>
#include <windows.h>

#include <array>
#include <string>

#include "engine/file_version.h"
#include "tests/engine/job_fixture.h"

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

// A job whose target is the sample already.
class RequiredVersionTest : public test::JobTest {
 protected:
  std::string LinesWith(const wchar_t* version) {
    test::WriteFileBytes(Target(L"f"), test::ReadFileBytes(Sample()));
    Serve("/f", test::Body(1000));
    Job().SetRequiredVersion(version);
    EXPECT_EQ(Download("/f"), kResultSuccess);
    return JobLines();
  }
};

TEST_F(RequiredVersionTest, TargetThatReachesItCostsNoBodyByteAndNoHead) {
  EXPECT_EQ(LinesWith(L"2.40.9"), "T1 T3 T4 T5 T6 S1 S5 S6 S9 S11 T7 T8 T9 T2");
  const auto requests = Server().RequestsFor("/f");
  ASSERT_EQ(requests.size(), 1u);  // what it has
  EXPECT_EQ(requests[0].method, "GET");
  EXPECT_EQ(test::ReadFileBytes(Target(L"f")), test::ReadFileBytes(Sample()));
}

TEST_F(RequiredVersionTest, OfTwoNumbersNeverSkipsTheDownload) {
  const std::string lines = LinesWith(L"1.2");
  EXPECT_NE(lines.find("S6 S9 S12 S17 "), std::string::npos) << lines;
  EXPECT_EQ(test::FileDifference(Target(L"f"), test::Body(1000)), "");
}

TEST_F(RequiredVersionTest, IsNotAskedForWhereADigestIsExpected) {
  Job().SetMd5Check(true);
  Job().SetExpectedMd5(std::wstring(32, L'0') + L"," + test::Md5Of(test::Body(1000)));
  const std::string lines = LinesWith(L"2.40.9");  // which it has reached
  EXPECT_NE(lines.find("S6 S7 S8 M2 S12 S17 "), std::string::npos) << lines;
  EXPECT_EQ(test::FileDifference(Target(L"f"), test::Body(1000)), "");
}

}  // namespace
}  // namespace Tarnlo
