// The library's own test download, from its first to its last second.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <future>
#include <string>

#include "tests/abi/host_record.h"
#include "tests/abi/loaded_dll.h"
#include "tests/support/temp_folder.h"

namespace Tarnlo {
namespace {

using test::HostRecord;
using test::LoadedDll;

std::filesystem::path LogFile() {
  return std::filesystem::temp_directory_path() / "tarnlo.log";
}

TEST(SlowTestDownload, RunsBesideTheLibraryForAHundredSeconds) {
  std::filesystem::remove(LogFile());
  const auto begin = std::chrono::steady_clock::now();
  std::future<std::int32_t> answer;
  {
    const LoadedDll dll;
    ASSERT_TRUE(dll.valid());
    dll.SetCallbacks();
    const auto call = [&dll] { return dll.test_download(); };
    answer = std::async(std::launch::async, call);
    ASSERT_TRUE(HostRecord::Get().Await("start 755"));
    // The library itself is not started, and its log neither.
    EXPECT_FALSE(dll.pause_task(755));
    EXPECT_FALSE(dll.cancel_task(755));
    EXPECT_FALSE(std::filesystem::exists(LogFile()));
  }
  EXPECT_TRUE(LoadedDll::IsThere());  // its threads run in it
  EXPECT_EQ(answer.get(), 0);
  EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::seconds(100));
  EXPECT_TRUE(LoadedDll::IsThere());  // for good
  EXPECT_FALSE(std::filesystem::exists(LogFile()));
  const HostRecord& record = HostRecord::Get();
  EXPECT_EQ(record.Count("complete 755") + record.Count("fail 755 "), 1);
}

}  // namespace
}  // namespace Tarnlo
