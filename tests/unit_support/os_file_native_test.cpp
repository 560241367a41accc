// What the development build's files do beyond what those of Windows are tested for.
#include <gtest/gtest.h>

#include <string>

#include "support/os/file.h"
#include "tests/support/temp_folder.h"

namespace Tarnlo::os {
namespace {

TEST(OsFileNativeTest, NameBeyondAsciiIsANameLikeAnother) {
  test::TempFolder temp;
  const std::wstring folder = temp.MakeFolder(L"\u00E4\u0A2A");
  const std::wstring path = temp.path() + L"\u00E4\u0A2A\\\u00FF\u20AC.bin";
  EXPECT_TRUE(IsDirectory(folder));
  EXPECT_FALSE(IsDirectory(path));
  const auto opens = [&path](FileCreation creation) {
    return File::Open(path, FileAccess::kWrite, FileShare::kNone, creation).valid();
  };
  EXPECT_TRUE(opens(FileCreation::kCreateNew));
  EXPECT_TRUE(opens(FileCreation::kOpenExisting));
  EXPECT_TRUE(RemoveFile(path));
}

// Half of a pair has no bytes in any code page.
TEST(OsFileNativeTest, HalfACharacterIsNoFolder) {
  EXPECT_FALSE(IsDirectory(L"Z:\\\xD800"));
}

}  // namespace
}  // namespace Tarnlo::os
