#include "engine/file_md5.h"

#include <gtest/gtest.h>

#include "support/os/event.h"
#include "support/os/file.h"
#include "tests/faults/faults.h"
#include "tests/support/temp_folder.h"

namespace Tarnlo {
namespace {

// A file of zeroes that takes no room.
std::wstring SparseFile(const test::TempFolder& folder, std::int64_t size) {
  std::wstring path = folder.File(L"zeroes");
  os::File file = os::File::Open(path, os::FileAccess::kReadWrite, os::FileShare::kNone,
                                 os::FileCreation::kCreateAlways);
  EXPECT_TRUE(file.Seek(size) && file.SetEnd());
  return path;
}

TEST(FileMd5Test, DigestOfAFile) {
  const test::TempFolder folder;
  test::WriteFileBytes(folder.File(L"f"), "message digest");
  EXPECT_EQ(ComputeFileMd5(folder.File(L"f"), nullptr), L"F96B697D7CB7938D525A2F31AAF161D0");
}

TEST(FileMd5Test, EmptyFileHasTheDigestOfNothing) {
  const test::TempFolder folder;
  test::WriteFileBytes(folder.File(L"f"), "");
  EXPECT_EQ(ComputeFileMd5(folder.File(L"f"), nullptr), L"D41D8CD98F00B204E9800998ECF8427E");
}

// From `head -c N /dev/zero | md5sum`.
TEST(FileMd5Test, FilesAroundBlocksAgreeWithMd5sum) {
  struct Digest {
    std::int64_t size;
    const wchar_t* md5;
  };
  const test::TempFolder folder;
  for (const Digest& digest : {Digest{(1 << 20) - 1, L"E57598CD670284CF7D09E16ED9D4B2AC"},
                               Digest{1 << 20, L"B6D81B360A5672D80C27430F39153E2C"},
                               Digest{(1 << 20) + 1, L"9587B149FF392CA6887A05D921E73E72"},
                               Digest{(64 << 20) - 1, L"E56021D8D7EAC567C0EB1F79F9E8F69F"},
                               Digest{64 << 20, L"7F614DA9329CD3AEBF59B91AADC30BF0"},
                               Digest{(64 << 20) + 1, L"279F6C15A48C009464BECE2B1BB75A70"}}) {
    EXPECT_EQ(ComputeFileMd5(SparseFile(folder, digest.size), nullptr), digest.md5) << digest.size;
  }
}

TEST(FileMd5Test, MissingFileHasNoDigest) {
  const test::TempFolder folder;
  EXPECT_EQ(ComputeFileMd5(folder.File(L"missing"), nullptr), L"");
}

TEST(FileMd5Test, FileThatSomeoneWritesToHasNoDigest) {
  const test::TempFolder folder;
  const os::File writer = os::File::Open(folder.File(L"f"), os::FileAccess::kReadWrite,
                                         os::FileShare::kRead, os::FileCreation::kCreateAlways);
  EXPECT_EQ(ComputeFileMd5(folder.File(L"f"), nullptr), L"");
}

TEST(FileMd5Test, ReadThatFailsHalfWayGivesTheDigestOfWhatCameBefore) {
  const test::TempFolder folder;
  const std::wstring path = SparseFile(folder, (1 << 20) + 1);
  test::Faults faults;
  faults.Fail(os::Call::kRead, 2);
  EXPECT_EQ(ComputeFileMd5(path, nullptr), L"B6D81B360A5672D80C27430F39153E2C");
  EXPECT_EQ(faults.Failed(), 1);
}

TEST(FileMd5Test, StopBeforeABlockIsToldApartFromFailure) {
  const test::TempFolder folder;
  test::WriteFileBytes(folder.File(L"f"), "bytes");
  os::Event stop;
  EXPECT_TRUE(ComputeFileMd5(folder.File(L"f"), &stop).has_value());
  stop.Set();
  EXPECT_FALSE(ComputeFileMd5(folder.File(L"f"), &stop).has_value());
  EXPECT_FALSE(ComputeFileMd5(folder.File(L"missing"), &stop).has_value());
}

TEST(FileMd5Test, FileThatSomeoneHoldsForAMomentIsWaitedForUnlessAStopComes) {
  const test::TempFolder folder;
  test::WriteFileBytes(folder.File(L"f"), "message digest");
  os::Event stop;
  test::Faults faults;
  faults.Fail(os::Call::kOpenFile, 1, 3);
  EXPECT_EQ(ComputeFileMd5(folder.File(L"f"), &stop), L"F96B697D7CB7938D525A2F31AAF161D0");
  faults.Fail(os::Call::kOpenFile, 1, 4);
  EXPECT_EQ(ComputeFileMd5(folder.File(L"f"), &stop), L"");
  faults.Fail(os::Call::kOpenFile, 1, 1);
  stop.Set();
  EXPECT_FALSE(ComputeFileMd5(folder.File(L"f"), &stop).has_value());
}

}  // namespace
}  // namespace Tarnlo
