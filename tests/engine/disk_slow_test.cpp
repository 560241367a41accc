// Names that a server may think of, and a disk that is full.
#include <gtest/gtest.h>

#include <cstdlib>
#include <deque>
#include <string>

#include "tests/engine/job_fixture.h"

namespace Tarnlo::test {
namespace {

constexpr std::int64_t kSmall = 10'000;

// Both attempts of all of them side by side.
TEST(SlowServerNames, StayInTheFolderOrFailWith9) {
  const std::vector<std::string> names = {"..",
                                          ".",
                                          "...",
                                          "..%2f..%2fx",
                                          "..%5cx",
                                          "a..",
                                          "CON",
                                          "con.txt",
                                          "NUL",
                                          "nul.tar.gz",
                                          "COM1",
                                          "com1.exe",
                                          "LPT9.",
                                          "AUX%20",
                                          "a.",
                                          "PRN",
                                          "a:b",
                                          "a%00b",
                                          "f?x=../y",
                                          "CONIN$",
                                          std::string(255, 'n'),
                                          std::string(256, 'n'),
                                          ""};
  std::deque<TempFolder> folders;
  std::deque<TestJob> jobs;
  for (const std::string& name : names) {
    TestJob& job = jobs.emplace_back();
    job.Serve("/d/" + name, Body(kSmall));
    const std::wstring folder = folders.emplace_back().MakeFolder(L"inner");
    ASSERT_TRUE(job.StartInto(folder, "/d/" + name));
  }
  for (std::size_t i = 0; i < names.size(); ++i) {
    SCOPED_TRACE(names[i]);
    const std::int32_t result = jobs[i].AwaitResult();
    jobs[i].AwaitRunEnd();
    EXPECT_EQ(folders[i].Names(), std::vector<std::wstring>{L"inner"});
    std::vector<std::wstring> files;
    for (const auto& entry :
         std::filesystem::directory_iterator(LocalPath(folders[i].path() + L"inner"))) {
      files.push_back(SystemPath(entry.path()));
    }
    if (result == kResultSuccess) {
      ASSERT_EQ(files.size(), 1u);
      EXPECT_EQ(FileDifference(files[0], Body(kSmall)), "");
    } else {
      EXPECT_TRUE(result == kResultFileFailed || result == kResultNoRemoteInfo) << result;
      EXPECT_TRUE(files.empty());
    }
  }
}

class SlowFullDisk : public JobTest {
 protected:
  // A file system of four MiB, which the script that runs the tests makes.
  static std::wstring Disk() {
    const char* const path = std::getenv("TARNLO_SMALL_DISK");
    if (path == nullptr) return {};
    const std::string text(path);
    return {text.begin(), text.end()};
  }
};

TEST_F(SlowFullDisk, EndsWith3AndTheFileIsCompletedWhenThereIsSpace) {
  const std::wstring disk = Disk();
  ASSERT_FALSE(disk.empty()) << "TARNLO_SMALL_DISK names no small disk";
  constexpr std::int64_t kSize = 3 << 20;
  const Body body(kSize);
  WriteFileBytes(disk + L"filler", std::string(2 << 20, 'f'));
  ASSERT_EQ(SizeOf(disk + L"filler"), 2 << 20);
  Serve("/f", body);
  ASSERT_TRUE(StartInto(disk, "/f"));
  EXPECT_EQ(AwaitResult(), kResultTooFewBytes);
  AwaitRunEnd();
  EXPECT_EQ(SizeOf(disk + L"f"), -1);
  EXPECT_EQ(Observer().CountOf(kEventFinished), 1u);

  std::filesystem::remove(LocalPath(disk + L"filler"));
  ASSERT_TRUE(Job().RenewStopEvent());
  ASSERT_TRUE(StartInto(disk, "/f"));
  EXPECT_EQ(AwaitResult(), kResultSuccess);
  AwaitRunEnd();
  EXPECT_EQ(FileDifference(disk + L"f", body), "");
  std::filesystem::remove(LocalPath(disk + L"f"));
}

}  // namespace
}  // namespace Tarnlo::test
