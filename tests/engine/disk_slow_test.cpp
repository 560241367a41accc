// Names that a server may think of, and a disk that is full.
#include <gtest/gtest.h>

#include <cstdlib>
#include <deque>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "tests/engine/table_fixture.h"

namespace Tarnlo::test {
namespace {

constexpr std::int64_t kSmall = 10'000;

// What a server calls a file, as the last part of its URL, and what it is called in the folder;
// nothing where that must fail, with 9.
struct ServerName {
  std::string in_url;
  std::optional<std::wstring> file;
};

std::vector<ServerName> ServerNames() {
  return {
      {"..", std::nullopt},
      {".", std::nullopt},
      {"...", std::nullopt},
      {"", std::nullopt},
      {"%20", std::nullopt},
      {".%20.", std::nullopt},
      // An escape is no separator and is not undone, but for a blank and a plus; an extension ends
      // at its first odd character.
      {"..%2fx", std::nullopt},
      {"..%5cx", std::nullopt},
      {"..%2f..%2fx", L"..%2f"},
      {"%2e%2e", L"%2e%2e"},
      {"a%00b", L"a%00b"},
      {"a%20b%2Bc", L"a b+c"},
      {"f?x=../y", L"y"},
      {"f?x=..", L"f_x="},
      {"a:b", L"a_b"},
      {"a*b|c\"d<e>f", L"a_b_c_d_e_f"},
      {"a.", L"a"},
      {"a..", L"a"},
      {"a%20", L"a"},
      {"a.b%20.%20", L"a.b"},
      {".hidden", L".hidden"},
      {"CON", std::nullopt},
      {"con.txt", std::nullopt},
      {"CON%20.txt", std::nullopt},
      {"NUL", std::nullopt},
      {"nul.tar.gz", std::nullopt},
      {"COM1", std::nullopt},
      {"com1.exe", std::nullopt},
      {"LPT9.", std::nullopt},
      {"AUX%20", std::nullopt},
      {"PRN", std::nullopt},
      {"CONIN$", std::nullopt},
      {"CON1", L"CON1"},
      {"COM10.txt", L"COM10.txt"},
      {std::string(100, 'n'), std::wstring(100, L'n')},
      {std::string(255, 'n'), std::nullopt},  // its temporary file's name would be longer
      {std::string(256, 'n'), std::nullopt},
  };
}

std::vector<std::wstring> FilesIn(const std::wstring& folder) {
  std::vector<std::wstring> files;
  for (const auto& entry : std::filesystem::directory_iterator(LocalPath(folder))) {
    files.push_back(SystemPath(entry.path()));
  }
  return files;
}

// All of them side by side; those that fail take both attempts.
TEST(SlowServerNames, ArePlainFilesInTheFolderOrFailWith9) {
  const std::vector<ServerName> names = ServerNames();
  std::deque<TempFolder> folders;
  std::deque<TestJob> jobs;
  for (const ServerName& name : names) {
    TestJob& job = jobs.emplace_back();
    job.Serve("/d/" + name.in_url, Body(kSmall));
    ASSERT_TRUE(job.StartInto(folders.emplace_back().MakeFolder(L"inner"), "/d/" + name.in_url));
  }
  for (std::size_t i = 0; i < names.size(); ++i) {
    SCOPED_TRACE(names[i].in_url);
    const std::int32_t result = jobs[i].AwaitResult();
    jobs[i].AwaitRunEnd();
    EXPECT_EQ(folders[i].Names(), std::vector<std::wstring>{L"inner"});
    const std::wstring inner = folders[i].path() + L"inner\\";
    if (!names[i].file) {
      EXPECT_EQ(result, kResultFileFailed);
      EXPECT_TRUE(FilesIn(inner).empty());
      continue;
    }
    EXPECT_EQ(result, kResultSuccess);
    EXPECT_EQ(FilesIn(inner), std::vector<std::wstring>{inner + *names[i].file});
    EXPECT_EQ(FileDifference(inner + *names[i].file, Body(kSmall)), "");
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
  ~SlowFullDisk() override {
    Job().Stop();
    if (Disk().empty()) return;
    for (const wchar_t* name : {L"filler", L"f", L"f.~P2S"}) {
      std::filesystem::remove(LocalPath(Disk() + name));
    }
  }
  static void FillTo(std::int64_t bytes) {
    WriteFileBytes(Disk() + L"filler", std::string(static_cast<std::size_t>(bytes), 'f'));
    ASSERT_EQ(SizeOf(Disk() + L"filler"), bytes);
  }
  static Trailer Left() { return ReadTrailer(Disk() + L"f.~P2S", kBody.size()); }
  std::int32_t Run() {
    EXPECT_TRUE(StartInto(Disk(), "/f"));
    const std::int32_t result = AwaitResult();
    AwaitRunEnd();
    return result;
  }
  // By a trailer that is right; everything where there was no room for one.
  void ExpectTheNextRunToFetchWhatIsMissing() {
    const Trailer left = Left();
    std::vector<Interval> missing{{0, kBody.size()}};
    if (left.count != 0) {
      EXPECT_EQ(left.count, 6u);
      EXPECT_EQ(RangesDifference(Disk() + L"f.~P2S", kBody, left.records), "");
      missing = Merged(left.Missing());
    }
    EXPECT_GT(BytesIn(missing), 0);
    std::filesystem::remove(LocalPath(Disk() + L"filler"));
    const std::size_t asked = Server().Requests().size();
    ASSERT_TRUE(Job().RenewStopEvent());
    EXPECT_EQ(Run(), kResultSuccess);
    ExpectOneCleanAttempt();
    EXPECT_EQ(Merged(RangesAskedFor(asked)), missing);
    EXPECT_EQ(FileDifference(Disk() + L"f", kBody), "");
  }

  static constexpr std::int64_t kSize = 3 << 20;
  inline static const Body kBody{kSize};
};

TEST_F(SlowFullDisk, EndsWith3AndTheFileIsCompletedWhenThereIsSpace) {
  ASSERT_FALSE(Disk().empty()) << "TARNLO_SMALL_DISK names no small disk";
  Serve("/f", kBody);
  FillTo(2 << 20);
  EXPECT_EQ(Run(), kResultTooFewBytes);
  EXPECT_EQ(SizeOf(Disk() + L"f"), -1);
  EXPECT_EQ(Observer().CountOf(kEventFinished), 1u);
  ExpectTheNextRunToFetchWhatIsMissing();
}

// The trailer of a run before has its place; then the disk fills up.
TEST_F(SlowFullDisk, LeavesARightTrailerWhereThereIsRoomAndTheNextRunFetchesTheRestAlone) {
  ASSERT_FALSE(Disk().empty()) << "TARNLO_SMALL_DISK names no small disk";
  constexpr std::int64_t kFirst = 20'000;
  const Gate& gate = NewGate();
  Serve("/f", kBody).ForPieces().Times(6).StallingAfter(kFirst, gate);
  Serve("/f", kBody);
  ASSERT_TRUE(StartInto(Disk(), "/f"));
  ASSERT_TRUE(gate.AwaitArrivals(6));
  AwaitDownloaded(6 * kFirst);
  Pause();
  EXPECT_EQ(Left().MissingBytes(), kBody.size() - 6 * kFirst);

  FillTo(5 << 19);
  Job().SetNotifying(true);
  ASSERT_TRUE(Job().RenewStopEvent());
  EXPECT_EQ(Run(), kResultTooFewBytes);
  EXPECT_EQ(Left().count, 6u);
  EXPECT_LT(Left().MissingBytes(), kBody.size() - 6 * kFirst);
  ExpectTheNextRunToFetchWhatIsMissing();
}

}  // namespace
}  // namespace Tarnlo::test
