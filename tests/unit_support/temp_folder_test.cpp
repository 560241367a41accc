// The folders in which tests work leave nothing behind.
#include "tests/support/temp_folder.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/os/file.h"
#include "tests/support/system.h"

namespace Tarnlo::test {
namespace {

TEST(TempFolderTest, GoesWithFilesOfLongPathsAndLeavesItsNeighbours) {
  TempFolder above;
  WriteFileBytes(above.File(L"stays"), "abc");
  std::wstring below = L"goes\\";
  while (below.size() < 600) below += std::wstring(49, L'd') + L"\\";
  const std::wstring deep = above.MakeFolder(below) + L"\\";
  WriteFileBytes(deep + L"file", "abc");
  ASSERT_TRUE(os::IsDirectory(deep));
  RemoveTree(LocalPath(above.File(L"goes")));
  EXPECT_EQ(above.Names(), std::vector<std::wstring>{L"stays"});
}

}  // namespace
}  // namespace Tarnlo::test
