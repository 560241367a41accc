// What it costs to save the trailer every 5 s: downloads with it and, in turns, ones in which every
// flush is refused, so that nothing is flushed and no trailer written.
// usage: bench_saving [MIB] [ROUNDS] [RATE]   RATE: MB/s of each connection; without, what it can
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "bench/timed_download.h"
#include "hosts/down_host_mgr.h"
#include "support/result.h"
#include "tests/faults/faults.h"
#include "tests/support/fault_server.h"
#include "tests/support/temp_folder.h"
#include "tests/support/test_log.h"

namespace Tarnlo::bench {
namespace {

constexpr int kEvery = 1 << 20;

struct Run {
  double seconds = 0;
  int flushes = 0;  // begun: a trailer follows each, unless the download ends before
};

Run RunOnce(const std::wstring& url, bool saving) {
  test::Faults faults;
  if (!saving) faults.Fail(os::Call::kFlush, 1, kEvery);
  const test::TempFolder folder;
  const TimedDownload download = Download(url, folder.path());
  if (download.result != kResultSuccess) {
    std::printf("a download ended with %d\n", download.result);
    std::exit(1);
  }
  return {download.seconds, faults.Calls(os::Call::kFlush)};
}

int Compare(std::int64_t mebibytes, int rounds, int rate) {
  test::StartTestLog();
  const std::int64_t size = mebibytes << 20;
  test::FaultServer server;
  test::FaultScript& script = server.Serve("/f", test::Body(size));
  if (rate > 0) script.Trickling(std::int64_t{rate} * 1'000'000);
  const std::wstring url = server.Url("/f");
  DownHostMgr::Shared().InitHost(server.Url("/").c_str(), nullptr);
  RunOnce(url, true);  // warms the disk's cache up
  std::vector<double> with;
  std::vector<double> without;
  int flushes = 0;
  for (int round = 0; round < rounds; ++round) {
    // Which one comes first changes, so that neither has the better disk each time.
    for (const bool saving : {round % 2 == 0, round % 2 != 0}) {
      const Run run = RunOnce(url, saving);
      (saving ? with : without).push_back(MegabytesPerSecond(size, run.seconds));
      if (saving) flushes += run.flushes;
      std::printf("  round %d, %s: %7.1f MB/s in %5.1f s\n", round + 1,
                  saving ? "saving    " : "not saving", MegabytesPerSecond(size, run.seconds),
                  run.seconds);
    }
  }
  std::printf("%-28s %8.1f MB/s, %d flushes in %d downloads\n", "saving every 5 s", Median(with),
              flushes, rounds);
  std::printf("%-28s %8.1f MB/s\n", "not saving", Median(without));
  std::printf("%-28s %8.3f\n", "ratio", Median(with) / Median(without));
  if (flushes == 0) std::printf("too short a download to be flushed: the ratio says nothing\n");
  return flushes == 0 ? 1 : 0;
}

}  // namespace
}  // namespace Tarnlo::bench

int main(int count, char** arguments) {
  std::setvbuf(stdout, nullptr, _IOLBF, 0);
  return Tarnlo::bench::Compare(count > 1 ? std::stoll(arguments[1]) : 12 * 1024,
                                count > 2 ? std::stoi(arguments[2]) : 3,
                                count > 3 ? std::stoi(arguments[3]) : 0);
}
