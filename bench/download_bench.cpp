// A file from a server nearby, and beside it the same file by libcurl: six transfers of a sixth
// each, every one with a thread and a file handle of its own, as the engine has them.
// usage: bench_download URL [ROUNDS]
#include <curl/curl.h>
#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

#include "bench/timed_download.h"
#include "engine/range_planner.h"
#include "support/result.h"
#include "tests/support/system.h"
#include "tests/support/temp_folder.h"
#include "tests/support/test_log.h"

namespace Tarnlo::bench {
namespace {

constexpr std::size_t kConnections = 6;

struct Piece {
  int file = -1;
  std::int64_t position = 0;
};

std::size_t Store(char* bytes, std::size_t size, std::size_t count, void* piece) {
  auto& to = *static_cast<Piece*>(piece);
  const ssize_t written = pwrite(to.file, bytes, size * count, to.position);
  if (written < 0) return 0;
  to.position += written;
  return static_cast<std::size_t>(written);
}

bool FetchPiece(const std::string& url, const std::string& path, const RangeRecord& range) {
  CURL* const curl = curl_easy_init();
  Piece piece{open(path.c_str(), O_WRONLY), range.start};
  const std::string ends =
      std::to_string(range.start) + "-" + std::to_string(range.start + range.length - 1);
  curl_easy_setopt(curl, CURLOPT_URL, url.c_str());
  curl_easy_setopt(curl, CURLOPT_RANGE, ends.c_str());
  curl_easy_setopt(curl, CURLOPT_PROXY, "");
  curl_easy_setopt(curl, CURLOPT_WRITEFUNCTION, &Store);
  curl_easy_setopt(curl, CURLOPT_WRITEDATA, &piece);
  const bool done =
      curl_easy_perform(curl) == CURLE_OK && piece.position == range.start + range.length;
  close(piece.file);
  curl_easy_cleanup(curl);
  return done;
}

std::int64_t LengthOf(const std::string& url) {
  CURL* const curl = curl_easy_init();
  curl_off_t length = -1;
  curl_easy_setopt(curl, CURLOPT_URL, url.c_str());
  curl_easy_setopt(curl, CURLOPT_PROXY, "");
  curl_easy_setopt(curl, CURLOPT_NOBODY, 1L);
  if (curl_easy_perform(curl) == CURLE_OK) {
    curl_easy_getinfo(curl, CURLINFO_CONTENT_LENGTH_DOWNLOAD_T, &length);
  }
  curl_easy_cleanup(curl);
  return length;
}

// The length and, of what libcurl needs, everything: from the question for the length on.
TimedDownload FetchWithCurl(const std::string& url, const std::string& path) {
  const auto begin = std::chrono::steady_clock::now();
  const std::vector<RangeRecord> plan = PlanRanges(LengthOf(url), kConnections);
  const int file = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
  const bool made = ftruncate(file, plan.back().start + plan.back().length) == 0;
  close(file);
  std::array<bool, kConnections> done{};
  std::vector<std::thread> threads;
  for (std::size_t i = 0; i < plan.size(); ++i) {
    threads.emplace_back([&, i] { done[i] = FetchPiece(url, path, plan[i]); });
  }
  for (std::thread& thread : threads) thread.join();
  const std::chrono::duration<double> took = std::chrono::steady_clock::now() - begin;
  bool all = made;
  for (const bool one : done) all = all && one;
  return {all ? kResultSuccess : kResultTooFewBytes, took.count()};
}

void Expect(const TimedDownload& download) {
  if (download.result == kResultSuccess) return;
  std::printf("a download ended with %d\n", download.result);
  std::exit(1);
}

int Compare(const std::string& url, int rounds) {
  curl_global_init(CURL_GLOBAL_DEFAULT);
  test::StartTestLog();
  const std::int64_t size = LengthOf(url);
  std::vector<double> ours;
  std::vector<double> curls;
  for (int round = 0; round <= rounds; ++round) {
    TimedDownload here;
    TimedDownload there;
    {
      const test::TempFolder folder;
      Expect(here = Download({url.begin(), url.end()}, folder.path()));
    }
    {
      const test::TempFolder folder;
      Expect(there = FetchWithCurl(url, test::LocalPath(folder.File(L"f")).string()));
    }
    if (round == 0) continue;  // warmed up
    ours.push_back(MegabytesPerSecond(size, here.seconds));
    curls.push_back(MegabytesPerSecond(size, there.seconds));
    std::printf("  round %d: %7.1f MB/s here, %7.1f MB/s libcurl\n", round, ours.back(),
                curls.back());
  }
  std::printf("%-28s %8.1f MB/s\n", "six connections here", Median(ours));
  std::printf("%-28s %8.1f MB/s\n", "six transfers of libcurl", Median(curls));
  std::printf("%-28s %8.3f\n", "ratio", Median(ours) / Median(curls));
  return 0;
}

}  // namespace
}  // namespace Tarnlo::bench

int main(int count, char** arguments) {
  std::setvbuf(stdout, nullptr, _IOLBF, 0);
  if (count < 2) return 2;
  return Tarnlo::bench::Compare(arguments[1], count > 2 ? std::stoi(arguments[2]) : 5);
}
