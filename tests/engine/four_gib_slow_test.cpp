// Files around and beyond 4 GiB, where 32 bits end.
#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "support/os/file.h"
#include "tests/engine/job_fixture.h"
#include "tests/support/long_run.h"
#include "tests/support/system.h"

namespace Tarnlo::test {
namespace {

constexpr std::int64_t kFourGib = std::int64_t{4} << 30;
constexpr std::int64_t kMissing = 1 << 20;
constexpr std::int64_t kSmall = 64 << 20;

os::File OpenExisting(const std::wstring& path) {
  return os::File::Open(path, os::FileAccess::kReadWrite, os::FileShare::kReadWriteDelete,
                        os::FileCreation::kOpenExisting);
}

// What `count` bytes at the offset are.
std::string BytesAt(const std::wstring& path, std::int64_t offset, std::uint32_t count) {
  os::File file = OpenExisting(path);
  std::string bytes(count, '?');
  if (!file.Seek(offset) || file.Read(bytes.data(), count) != count) return "unreadable";
  return bytes;
}

class SlowFourGib : public JobTest, public testing::WithParamInterface<std::int64_t> {
 protected:
  // A temporary file of which all but 1 MiB is done: it is missing around 2 GiB and at the end,
  // where the last range begins at 4 GiB when the file has 10 bytes more. The done bytes are a
  // hole, for nobody is to read them.
  Trailer WriteTemporary() {
    constexpr std::int64_t kTwoGib = kFourGib / 2;
    const std::int64_t last = GetParam() - 10;
    Trailer trailer{6, {}};
    const auto add = [&](std::int64_t begin, std::int64_t end, std::int64_t missing) {
      trailer.records.push_back({begin, end - begin, end - begin - missing});
    };
    add(0, kTwoGib / 2, 0);
    add(kTwoGib / 2, kTwoGib - kMissing / 4, 0);
    add(kTwoGib - kMissing / 4, kTwoGib + kMissing / 4, kMissing / 2);
    add(kTwoGib + kMissing / 4, kTwoGib / 2 * 3, 0);
    add(kTwoGib / 2 * 3, last, kMissing / 2 - 10);
    add(last, GetParam(), 10);
    const std::string bytes = EncodeTrailer(trailer);
    MakeSparseFile(Temporary(L"f"));
    os::File file = OpenExisting(Temporary(L"f"));
    EXPECT_TRUE(file.Seek(GetParam()));
    const auto size = static_cast<std::uint32_t>(bytes.size());
    EXPECT_EQ(file.Write(bytes.data(), size), size);
    return trailer;
  }
};

TEST_P(SlowFourGib, LastMegabyteIsFetchedToItsPlaceAndNothingElse) {
  const Body body(GetParam());
  const Trailer trailer = WriteTemporary();
  ASSERT_EQ(trailer.MissingBytes(), kMissing);
  Serve("/f", body);
  ASSERT_EQ(Download("/f"), kResultSuccess);
  ExpectOneCleanAttempt();
  EXPECT_EQ(SizeOf(Target(L"f")), body.size());
  EXPECT_EQ(Files(), std::vector<std::wstring>{L"f"});
  std::vector<Interval> asked = RangesAskedFor();
  std::erase(asked, Interval{0, 2});  // the probe's
  const std::vector<Interval> missing = Merged(trailer.Missing());
  EXPECT_EQ(Merged(asked), missing);
  for (const auto& [begin, end] : missing) {
    EXPECT_EQ(FileDifference(Target(L"f"), body, begin, end), "");
    EXPECT_EQ(BytesAt(Target(L"f"), begin - 1000, 1000), std::string(1000, '\0'));
  }
  EXPECT_EQ(BytesAt(Target(L"f"), 0, 1000), std::string(1000, '\0'));
}

INSTANTIATE_TEST_SUITE_P(Around, SlowFourGib,
                         testing::Values(kFourGib - 1, kFourGib, kFourGib + 10));

class SlowFourGibDownload : public JobTest {};

TEST_F(SlowFourGibDownload, EveryByteIsRight) {
  // Beyond 4 GiB in a long run only.
  const Body body((LongRun() ? kFourGib : kSmall) + 10);
  const auto room = std::filesystem::space(LocalPath(Folder()));
  const auto needed = static_cast<std::uintmax_t>(body.size() + kSmall);
  ASSERT_GE(room.available, needed) << "too little room on the disk for this test, in bytes";
  Serve("/f", body);
  ASSERT_TRUE(Start("/f"));
  // However long it takes: the watchdog of the test program looks after the time.
  while (Job().HasStopEvent()) std::this_thread::sleep_for(std::chrono::milliseconds(10));
  EXPECT_EQ(AwaitResult(), kResultSuccess);
  AwaitRunEnd();
  ExpectOneCleanAttempt();
  EXPECT_EQ(FileDifference(Target(L"f"), body), "");
  EXPECT_EQ(Files(), std::vector<std::wstring>{L"f"});
  std::printf(
      "figures: %lld bytes downloaded and compared over six connections, %zu GET requests\n",
      static_cast<long long>(body.size()), RangesAskedFor().size());
}

}  // namespace
}  // namespace Tarnlo::test
