#include <gtest/gtest.h>

#include "support/os/file_version.h"

namespace Tarnlo::os {
namespace {

TEST(OsFileVersionTest, ProgramFileOfTheSystemHasOne) {
  const auto version = ReadFileVersion(L"C:\\windows\\system32\\kernel32.dll");
  ASSERT_TRUE(version.has_value());
  EXPECT_GT((*version)[0], 0);
}

}  // namespace
}  // namespace Tarnlo::os
