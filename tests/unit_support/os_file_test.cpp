#include <gtest/gtest.h>

#include <array>
#include <limits>
#include <string>
#include <vector>

#include "support/os/file.h"
#include "tests/support/system.h"
#include "tests/support/temp_folder.h"

namespace Tarnlo::os {
namespace {

File OpenToRead(const std::wstring& path, FileShare share = FileShare::kRead) {
  return File::Open(path, FileAccess::kRead, share, FileCreation::kOpenExisting);
}

class OsFileTest : public testing::Test {
 protected:
  test::TempFolder m_temp;
  const std::wstring m_path = m_temp.File(L"file.bin");
};

TEST_F(OsFileTest, CreationModesDoWhatTheirNamesSay) {
  const auto opens = [this](FileCreation creation) {
    return File::Open(m_path, FileAccess::kWrite, FileShare::kNone, creation).valid();
  };
  EXPECT_FALSE(opens(FileCreation::kOpenExisting));
  EXPECT_TRUE(opens(FileCreation::kCreateNew));
  EXPECT_FALSE(opens(FileCreation::kCreateNew));
  test::WriteFileBytes(m_path, "abc");
  EXPECT_TRUE(opens(FileCreation::kOpenExisting));
  EXPECT_TRUE(opens(FileCreation::kOpenAlways));
  EXPECT_EQ(test::ReadFileBytes(m_path), "abc");
  EXPECT_TRUE(opens(FileCreation::kCreateAlways));
  EXPECT_EQ(test::ReadFileBytes(m_path), "");
  EXPECT_TRUE(RemoveFile(m_path));
  EXPECT_TRUE(opens(FileCreation::kOpenAlways));
}

TEST_F(OsFileTest, ReadsAndWritesAtThePositionSought) {
  File file =
      File::Open(m_path, FileAccess::kReadWrite, FileShare::kNone, FileCreation::kCreateNew);
  EXPECT_EQ(file.Write("0123456789", 10), 10U);
  EXPECT_TRUE(file.Seek(3));
  EXPECT_EQ(file.Write("abc", 3), 3U);
  EXPECT_TRUE(file.Flush());
  EXPECT_TRUE(file.Seek(8));
  std::array<char, 16> bytes{};
  EXPECT_EQ(file.Read(bytes.data(), 16), 2U);
  EXPECT_EQ(std::string(bytes.data()), "89");
  EXPECT_EQ(file.Read(bytes.data(), 16), 0U);
  EXPECT_EQ(file.Size(), 10);
  file.Close();
  EXPECT_FALSE(file.valid());
  EXPECT_EQ(test::ReadFileBytes(m_path), "012abc6789");
}

TEST_F(OsFileTest, EndIsWhereThePositionIs) {
  test::WriteFileBytes(m_path, "0123456789");
  File file = File::Open(m_path, FileAccess::kWrite, FileShare::kNone, FileCreation::kOpenExisting);
  EXPECT_TRUE(file.Seek(4));
  EXPECT_TRUE(file.SetEnd());
  EXPECT_EQ(file.Size(), 4);
  EXPECT_TRUE(file.Seek(6));
  EXPECT_TRUE(file.SetEnd());
  file.Close();
  EXPECT_EQ(test::ReadFileBytes(m_path), std::string("0123\0\0", 6));
}

TEST_F(OsFileTest, AppendedBytesGoToTheEndOfAFileThatOthersHaveOpen) {
  EXPECT_TRUE(AppendToFile(m_path, ""));
  EXPECT_EQ(test::ReadFileBytes(m_path), "");
  File other = File::Open(m_path, FileAccess::kReadWrite, FileShare::kReadWriteDelete,
                          FileCreation::kOpenExisting);
  EXPECT_TRUE(AppendToFile(m_path, "one "));
  EXPECT_EQ(other.Write("ONE two ", 8), 8U);
  EXPECT_TRUE(AppendToFile(m_path, "three"));
  EXPECT_EQ(test::ReadFileBytes(m_path), "ONE two three");
}

TEST_F(OsFileTest, FileThatNobodyMayWriteIsNotAppendedTo) {
  test::WriteFileBytes(m_path, "mine");
  const File other =
      File::Open(m_path, FileAccess::kRead, FileShare::kRead, FileCreation::kOpenExisting);
  ASSERT_TRUE(other.valid());
  EXPECT_FALSE(AppendToFile(m_path, "theirs"));
  EXPECT_EQ(test::ReadFileBytes(m_path), "mine");
}

TEST_F(OsFileTest, NegativePositionIsRefused) {
  File file = File::Open(m_path, FileAccess::kWrite, FileShare::kNone, FileCreation::kCreateNew);
  EXPECT_FALSE(file.Seek(-1));
}

TEST_F(OsFileTest, PositionBeyondFourGibibytesIsReached) {
  File file =
      File::Open(m_path, FileAccess::kReadWrite, FileShare::kNone, FileCreation::kCreateNew);
  EXPECT_TRUE(file.Seek(4'294'967'306));
  EXPECT_EQ(file.Write("x", 1), 1U);
  EXPECT_EQ(file.Size(), 4'294'967'307);
}

TEST_F(OsFileTest, ClosedFileFailsEveryCall) {
  File file;
  char byte = 0;
  EXPECT_FALSE(file.valid());
  EXPECT_EQ(file.Size(), std::nullopt);
  EXPECT_FALSE(file.Seek(0));
  EXPECT_EQ(file.Read(&byte, 1), std::nullopt);
  EXPECT_EQ(file.Write(&byte, 1), std::nullopt);
  EXPECT_FALSE(file.SetEnd());
  EXPECT_FALSE(file.Flush());
}

TEST_F(OsFileTest, WrongAccessFails) {
  test::WriteFileBytes(m_path, "abc");
  char byte = 0;
  EXPECT_EQ(OpenToRead(m_path).Write(&byte, 1), std::nullopt);
  EXPECT_EQ(File::Open(m_path, FileAccess::kWrite, FileShare::kNone, FileCreation::kOpenExisting)
                .Read(&byte, 1),
            std::nullopt);
}

TEST_F(OsFileTest, SharingAllowsWhatItNames) {
  test::WriteFileBytes(m_path, "abc");
  const auto can_write = [this] {
    return File::Open(m_path, FileAccess::kWrite, FileShare::kReadWriteDelete,
                      FileCreation::kOpenExisting)
        .valid();
  };
  const auto can_read = [this] { return OpenToRead(m_path, FileShare::kReadWriteDelete).valid(); };
  {
    const File holder = OpenToRead(m_path, FileShare::kNone);
    EXPECT_FALSE(can_read());
    EXPECT_FALSE(can_write());
  }
  {
    const File holder = OpenToRead(m_path, FileShare::kRead);
    EXPECT_TRUE(can_read());
    EXPECT_FALSE(can_write());
    EXPECT_FALSE(RemoveFile(m_path));
  }
  {
    const File holder = OpenToRead(m_path, FileShare::kReadWrite);
    EXPECT_TRUE(can_write());
    EXPECT_FALSE(RemoveFile(m_path));
  }
  const File holder = OpenToRead(m_path, FileShare::kReadWriteDelete);
  EXPECT_TRUE(RemoveFile(m_path));
}

TEST_F(OsFileTest, HiddenFileIsMarkedAndCanBeMadeNormalAndRemoved) {
  test::WriteFileBytes(m_path, "abc");
  EXPECT_TRUE(SetHidden(m_path));
  EXPECT_TRUE(test::IsHidden(m_path));
  EXPECT_TRUE(SetNormal(m_path));
  EXPECT_FALSE(test::IsHidden(m_path));
  EXPECT_TRUE(SetHidden(m_path));
  EXPECT_TRUE(RemoveFile(m_path));
  EXPECT_FALSE(test::FileExists(m_path));
}

TEST_F(OsFileTest, WhatIsNotThereFails) {
  EXPECT_FALSE(RemoveFile(m_path));
  EXPECT_FALSE(SetHidden(m_path));
  EXPECT_FALSE(SetNormal(m_path));
  EXPECT_FALSE(OpenToRead(m_path).valid());
  EXPECT_FALSE(OpenToRead(L"").valid());
}

TEST_F(OsFileTest, FolderIsToldFromAFile) {
  test::WriteFileBytes(m_path, "abc");
  EXPECT_TRUE(IsDirectory(m_temp.path()));
  EXPECT_FALSE(IsDirectory(m_path));
  EXPECT_FALSE(IsDirectory(m_temp.File(L"missing")));
  EXPECT_FALSE(IsDirectory(L""));
  EXPECT_FALSE(RemoveFile(m_temp.path()));
}

class OsRenameTest : public OsFileTest {
 protected:
  void SetUp() override {
    test::WriteFileBytes(m_path, "new");
    test::WriteFileBytes(m_target, "old");
  }
  const std::wstring m_target = m_temp.File(L"target.bin");
};

TEST_F(OsRenameTest, ReplacesAFileThatIsThere) {
  EXPECT_EQ(ReplaceByRename(m_path, m_target), RenameResult::kDone);
  EXPECT_EQ(test::ReadFileBytes(m_target), "new");
  EXPECT_FALSE(test::FileExists(m_path));
}

TEST_F(OsRenameTest, TakesAFreeName) {
  EXPECT_EQ(ReplaceByRename(m_path, m_temp.File(L"free")), RenameResult::kDone);
  EXPECT_EQ(RenameNew(m_target, m_temp.File(L"free too")), RenameNewResult::kDone);
  EXPECT_EQ(m_temp.Names(), (std::vector<std::wstring>{L"free", L"free too"}));
}

TEST_F(OsRenameTest, HeldTargetIsBusyAndBothStay) {
  {
    const File holder = OpenToRead(m_target);
    EXPECT_EQ(ReplaceByRename(m_path, m_target), RenameResult::kBusy);
  }
  EXPECT_EQ(test::ReadFileBytes(m_target), "old");
  EXPECT_EQ(test::ReadFileBytes(m_path), "new");
}

TEST_F(OsRenameTest, HeldSourceIsBusyAndBothStay) {
  {
    const File holder = OpenToRead(m_path);
    EXPECT_EQ(ReplaceByRename(m_path, m_target), RenameResult::kBusy);
  }
  EXPECT_EQ(test::ReadFileBytes(m_target), "old");
  EXPECT_EQ(test::ReadFileBytes(m_path), "new");
}

TEST_F(OsRenameTest, MissingSourceFails) {
  EXPECT_EQ(ReplaceByRename(m_temp.File(L"missing"), m_target), RenameResult::kFailed);
  EXPECT_EQ(RenameNew(m_temp.File(L"missing"), m_temp.File(L"free")), RenameNewResult::kFailed);
  EXPECT_EQ(test::ReadFileBytes(m_target), "old");
}

TEST_F(OsRenameTest, NameThatMustBeFreeIsNotTaken) {
  EXPECT_EQ(RenameNew(m_path, m_target), RenameNewResult::kTaken);
  EXPECT_EQ(test::ReadFileBytes(m_target), "old");
  EXPECT_EQ(test::ReadFileBytes(m_path), "new");
}

// Path lengths around the limit of the system's short form, and far beyond it.
class OsLongPathTest : public OsFileTest, public testing::WithParamInterface<int> {
 protected:
  // The path of a file in a deep folder, `GetParam()` characters in all.
  std::wstring MakePath() {
    const auto length = static_cast<std::size_t>(GetParam());
    std::wstring below;
    const std::size_t folder_length = length - m_temp.path().size() - 40;
    while (below.size() + 50 < folder_length) below += std::wstring(49, L'd') + L"\\";
    const std::wstring folder = m_temp.path() + below;
    m_temp.MakeFolder(below);
    return folder + std::wstring(length - folder.size(), L'f');
  }
};

TEST_P(OsLongPathTest, EveryCallTakesIt) {
  const std::wstring path = MakePath();
  ASSERT_EQ(path.size(), static_cast<std::size_t>(GetParam()));
  {
    File file = File::Open(path, FileAccess::kWrite, FileShare::kNone, FileCreation::kCreateNew);
    ASSERT_TRUE(file.valid());
    EXPECT_EQ(file.Write("abc", 3), 3U);
  }
  EXPECT_TRUE(SetHidden(path));
  EXPECT_TRUE(SetNormal(path));
  const std::wstring longer = path + L".~P2S";
  EXPECT_EQ(ReplaceByRename(path, longer), RenameResult::kDone);
  EXPECT_EQ(RenameNew(longer, path), RenameNewResult::kDone);
  EXPECT_TRUE(IsDirectory(path.substr(0, path.rfind(L'\\'))));
  EXPECT_EQ(OpenToRead(path).Size(), 3);
  EXPECT_TRUE(RemoveFile(path));
  EXPECT_FALSE(OpenToRead(path).valid());
}

TEST_P(OsLongPathTest, ForwardSlashesAndPointsMeanTheSame) {
  const std::wstring path = MakePath();
  test::WriteFileBytes(path, "abc");
  std::wstring other = path;
  for (wchar_t& c : other) c = c == L'\\' ? L'/' : c;
  EXPECT_EQ(OpenToRead(other).Size(), 3);
  other.insert(other.rfind(L'/'), L"/.");
  EXPECT_EQ(OpenToRead(other).Size(), 3);
}

INSTANTIATE_TEST_SUITE_P(Lengths, OsLongPathTest,
                         testing::Values(234, 239, 240, 241, 259, 260, 261, 300, 1000));

}  // namespace
}  // namespace Tarnlo::os
