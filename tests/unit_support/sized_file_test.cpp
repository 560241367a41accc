#include "support/sized_file.h"

#include <gtest/gtest.h>

#include <limits>
#include <string>

#include "support/os/file.h"
#include "tests/support/temp_folder.h"

namespace Tarnlo {
namespace {

class SizedFileTest : public testing::Test {
 protected:
  test::TempFolder m_temp;
  const std::wstring m_path = m_temp.File(L"file.bin");
};

TEST_F(SizedFileTest, FileGetsExactlyItsSizeInZeroes) {
  for (const std::int64_t size : {1, 2, 1148, 65'536}) {
    EXPECT_EQ(CreateSizedFile(m_path, size), SizedFileResult::kDone);
    EXPECT_EQ(test::ReadFileBytes(m_path), std::string(static_cast<std::size_t>(size), '\0'));
  }
}

TEST_F(SizedFileTest, SizeBelowOneMakesAnEmptyFile) {
  for (const std::int64_t size :
       {std::int64_t{0}, std::int64_t{-1}, std::numeric_limits<std::int64_t>::min()}) {
    EXPECT_EQ(CreateSizedFile(m_path, size), SizedFileResult::kDone);
    EXPECT_TRUE(test::FileExists(m_path));
    EXPECT_EQ(test::ReadFileBytes(m_path), "");
  }
}

TEST_F(SizedFileTest, SizeBeyondFourGibibytesIsReached) {
  constexpr std::int64_t kSize = 4'294'967'306;
  ASSERT_EQ(CreateSizedFile(m_path, kSize), SizedFileResult::kDone);
  const os::File file = os::File::Open(m_path, os::FileAccess::kRead, os::FileShare::kRead,
                                       os::FileCreation::kOpenExisting);
  EXPECT_EQ(file.Size(), kSize);
}

TEST_F(SizedFileTest, NoNameIsRefused) {
  EXPECT_EQ(CreateSizedFile(L"", 1), SizedFileResult::kNoName);
}

TEST_F(SizedFileTest, FileThatWasThereIsReplaced) {
  test::WriteFileBytes(m_path, "something longer");
  EXPECT_EQ(CreateSizedFile(m_path, 3), SizedFileResult::kDone);
  EXPECT_EQ(test::ReadFileBytes(m_path), std::string(3, '\0'));
}

TEST_F(SizedFileTest, HiddenFileThatWasThereIsReplaced) {
  test::WriteFileBytes(m_path, "old");
  ASSERT_TRUE(os::SetHidden(m_path));
  EXPECT_EQ(CreateSizedFile(m_path, 1), SizedFileResult::kDone);
  EXPECT_EQ(test::ReadFileBytes(m_path), std::string(1, '\0'));
}

TEST_F(SizedFileTest, MissingFolderMakesNothing) {
  EXPECT_EQ(CreateSizedFile(m_temp.File(L"missing\\file.bin"), 1), SizedFileResult::kNotCreated);
  EXPECT_TRUE(m_temp.Names().empty());
}

TEST_F(SizedFileTest, FileThatSomeoneHoldsIsNotTouched) {
  test::WriteFileBytes(m_path, "held");
  {
    const os::File holder = os::File::Open(m_path, os::FileAccess::kRead, os::FileShare::kRead,
                                           os::FileCreation::kOpenExisting);
    ASSERT_TRUE(holder.valid());
    EXPECT_EQ(CreateSizedFile(m_path, 1), SizedFileResult::kNotCreated);
  }
  EXPECT_EQ(test::ReadFileBytes(m_path), "held");
}

TEST_F(SizedFileTest, SizeThatNoDiskHoldsFailsAndLeavesNothing) {
  // Some file systems refuse the end, some the position already.
  const auto result = CreateSizedFile(m_path, std::numeric_limits<std::int64_t>::max());
  EXPECT_TRUE(result == SizedFileResult::kNotExtended || result == SizedFileResult::kNotCreated);
  EXPECT_FALSE(test::FileExists(m_path));
}

}  // namespace
}  // namespace Tarnlo
