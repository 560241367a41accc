// The library's own test download, from its first to its last second.
#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <future>
#include <optional>
#include <string>
#include <system_error>

#include "tests/abi/host_record.h"
#include "tests/abi/loaded_dll.h"
#include "tests/support/body.h"
#include "tests/support/fault_server.h"
#include "tests/support/repeat_until.h"

namespace Tarnlo {
namespace {

using test::HostRecord;
using test::LoadedDll;

std::filesystem::path LogFile() {
  return std::filesystem::temp_directory_path() / "tarnlo.log";
}

// Where the file is downloaded to: a folder that is there and does not hold it.
//
// Lifetime: removes the file at the end, and the folder when nothing else is in it.
class DownloadPlace {
 public:
  DownloadPlace() {
    RemoveFiles();
    std::filesystem::create_directories(kFolder);
  }
  DownloadPlace(const DownloadPlace&) = delete;
  DownloadPlace& operator=(const DownloadPlace&) = delete;
  ~DownloadPlace() {
    std::error_code ignored;
    RemoveFiles();
    std::filesystem::remove(kFolder, ignored);
  }

  [[nodiscard]] std::wstring File() const { return kFile; }

 private:
  static constexpr const wchar_t* kFolder = L"C:\\Users\\Public\\Documents\\Quorvane\\";
  static constexpr const wchar_t* kFile = L"C:\\Users\\Public\\Documents\\Quorvane\\setup.exe";

  static void RemoveFiles() {
    std::error_code ignored;
    std::filesystem::remove(kFile, ignored);
    std::filesystem::remove(std::wstring(kFile) + L".~P2S", ignored);
  }
};

// At the port of a URL that names none, which other tests of this machine may have for a moment.
bool ServeAtTheUsualPort(std::optional<test::FaultServer>& server) {
  return test::RepeatUntil([&] {
    server.emplace("127.0.0.1", std::uint16_t{80});
    return server->valid();
  });
}

TEST(SlowTestDownload, RunsBesideTheLibraryForAHundredSeconds) {
  const test::Body body(600'000);
  const DownloadPlace place;
  std::optional<test::FaultServer> server;
  ASSERT_TRUE(ServeAtTheUsualPort(server)) << "127.0.0.1:80 is taken";
  server->Serve("/tarnlo/setup.exe", body);
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
  EXPECT_TRUE(LoadedDll::IsThereAfterFreeing(5));
  EXPECT_TRUE(HostRecord::Get().Await("complete 755"));
  EXPECT_EQ(test::FileDifference(place.File(), body), "");
  server.reset();
  EXPECT_EQ(answer.get(), 0);
  EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::seconds(100));
  EXPECT_TRUE(LoadedDll::IsThereAfterFreeing(5));  // for good
  EXPECT_FALSE(std::filesystem::exists(LogFile()));
  EXPECT_EQ(HostRecord::Get().Count("start 755"), 1);
  EXPECT_EQ(HostRecord::Get().Count("complete 755"), 1);
  EXPECT_EQ(HostRecord::Get().Count("fail 755 "), 0);
}

}  // namespace
}  // namespace Tarnlo
