#include "tests/support/kill_run.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <mutex>
#include <optional>
#include <random>
#include <thread>
#include <utility>
#include <vector>

#include "tests/support/child_process.h"
#include "tests/support/fault_server.h"
#include "tests/support/long_run.h"
#include "tests/support/partial_file.h"
#include "tests/support/temp_folder.h"
#include "tests/support/trailer.h"

namespace Tarnlo::test {
namespace {

using std::chrono::milliseconds;

constexpr std::int64_t kBytesPerSecond = 400'000;  // of one connection
// Takes 18 s. The end of a page lies in the middle of the trailer, where the system may cut a write
// in two when it ends the process.
constexpr std::int64_t kPage = 4096;
constexpr std::int64_t kSize =
    (kConnections * 18 * kBytesPerSecond / kPage + 1) * kPage - kTrailerBytes / 2;
static_assert(kSize / kPage < (kSize + kTrailerBytes - 1) / kPage);
constexpr Interval kProbe{0, 2};
constexpr int kLanes = 8;
constexpr int kShortKills = 8;
constexpr int kLongKills = 300;
constexpr int kAnyMoment = 18'500;  // milliseconds, to the end of the download
// The job looks every second, copies its records after five, and writes them at the look that finds
// the data flushed: when the trailer is first written, how long after that it is again, and how
// much later either may be.
constexpr int kFirstSaveMs = 5'800;
constexpr int kNextSaveMs = 4'900;
constexpr int kSaveWindowMs = 1'200;
// What a process that was killed after a save may lose: the bytes of twice the time between two
// copies of the records. It is less than what has come when the second save is due.
constexpr std::int64_t kMostLost = kConnections * kBytesPerSecond * 2 * 5;
// A download that was over before its process could be killed, as one of three with fast
// connections may be, is begun again, so many times.
constexpr int kMostTries = 20;
constexpr milliseconds kPatience(60'000);
constexpr std::size_t kLogTail = 6'000;

// When a round kills.
enum class Moment { kAny, kFirstSave, kTwice, kSecondSave };
constexpr std::array<const char*, 4> kMomentNames = {"at any moment", "at the first save", "twice",
                                                     "at the second save"};

// What one round has seen.
struct Outcome {
  std::string wrong;         // empty when all is right
  bool finished = false;     // before it could be killed where it was to be: nothing was seen
  bool saved = false;        // the trailer had been written
  bool named = false;        // complete, and under its own name
  bool handed_over = false;  // a connection had taken over a part of another's range
  std::int64_t again = 0;    // bytes that were fetched and are not in the trailer
};

// One download: killed, looked at, completed. Threads: one.
class KillRound {
 public:
  KillRound(std::string child_test, int number)
      : m_test(std::move(child_test)),
        m_moment(static_cast<Moment>(number % 4)),
        m_fast(number / 4 % 2 == 1),
        m_body(kSize, static_cast<std::uint64_t>(number) + 1) {
    // Two connections of every other download are faster, and take over what others have left.
    if (m_fast) {
      m_server.Serve("/slow/f", m_body).Times(3).Trickling(kBytesPerSecond);
      m_server.Serve("/slow/f", m_body).Times(2).Trickling(kBytesPerSecond * 5);
    }
    m_server.Serve("/slow/f", m_body).Trickling(kBytesPerSecond);
    m_server.Serve("/fast/f", m_body);
  }

  Outcome Run() {
    if (m_moment == Moment::kTwice) {
      KillAfter(Random(kAnyMoment / 2));
      if (GoesOn()) KillAfter(Random(kAnyMoment / 2));
    } else if (m_moment == Moment::kAny) {
      KillAfter(Random(kAnyMoment));
    } else {
      KillAroundSave();
    }
    if (GoesOn()) CheckThePromise();
    if (GoesOn()) Complete();
    if (!m_outcome.wrong.empty()) m_outcome.wrong = Name() + ": " + m_outcome.wrong;
    return m_outcome;
  }

 private:
  static milliseconds Random(int limit) {
    static std::random_device device;
    static std::mutex mutex;
    const std::lock_guard guard(mutex);
    return milliseconds(std::uniform_int_distribution(0, limit)(device));
  }

  [[nodiscard]] std::string Name() const {
    return std::string("killed ") + kMomentNames[static_cast<std::size_t>(m_moment)] + ", after" +
           m_delays + " ms" + (m_fast ? ", two connections fast" : "");
  }
  [[nodiscard]] ChildProcess::Variables For(const std::string& path) const {
    return {{kKillFolder, m_folder.path()}, {kKillUrl, m_server.Url(path)}};
  }

  void KillAfter(milliseconds delay) {
    ChildProcess child(m_test, m_temp.path(), For("/slow/f"));
    KillNow(child, delay);
  }
  // Counted from the first request for bytes, or from the first save.
  void KillAroundSave() {
    const bool first = m_moment == Moment::kFirstSave;
    const auto begun = [&] { return first ? !RangesAskedFor("/slow/f").empty() : HasTrailer(); };
    const auto end = std::chrono::steady_clock::now() + kPatience;
    ChildProcess child(m_test, m_temp.path(), For("/slow/f"));
    std::optional<std::chrono::steady_clock::time_point> asked;
    bool seen = false;
    while (!seen && std::chrono::steady_clock::now() < end) {
      const bool running = child.AwaitEnd(milliseconds(5)) == kChildHung;
      if (!asked && !RangesAskedFor("/slow/f").empty()) asked = std::chrono::steady_clock::now();
      seen = begun();
      if (!running) break;
    }
    if (!seen) {
      m_outcome.wrong = (first ? "no byte was asked for; " : "no save came; ") + LastLog();
      return;
    }
    // One that a slow disk holds up for longer says nothing about what a kill costs.
    const auto latest = milliseconds(kFirstSaveMs + kSaveWindowMs);
    if (!first && asked && std::chrono::steady_clock::now() - *asked > latest) {
      m_outcome.finished = true;
      return;
    }
    KillNow(child, milliseconds(first ? kFirstSaveMs : kNextSaveMs) + Random(kSaveWindowMs));
  }
  [[nodiscard]] bool HasTrailer() const {
    return ReadTrailer(m_folder.File(L"f.~P2S"), kSize).count != 0;
  }
  void KillNow(ChildProcess& child, milliseconds delay) {
    m_delays.append(" ").append(std::to_string(delay.count()));
    const bool running = child.AwaitEnd(delay) == kChildHung;
    child.Kill();
    const int code = child.AwaitEnd(kPatience);
    m_outcome.finished = code == 0;
    if (m_outcome.finished) return;
    if (running && code == kChildKilled) {
      LookAtFile();
    } else {
      m_outcome.wrong =
          "the process that was to be killed ended with " + std::to_string(code) + "; " + LastLog();
    }
  }
  [[nodiscard]] bool GoesOn() const { return m_outcome.wrong.empty() && !m_outcome.finished; }

  // What the dead process has left claims no byte that is not there.
  void LookAtFile() {
    const std::wstring path = m_folder.File(L"f.~P2S");
    if (SizeOf(path) == -1 && SizeOf(m_folder.File(L"f")) != -1) {
      m_missing.clear();
      m_outcome.named = true;
      m_outcome.wrong = FileDifference(m_folder.File(L"f"), m_body);
      return;
    }
    const PartialFile left(path, m_body);
    m_outcome.saved = left.saved();
    m_missing = left.Missing();
    m_outcome.wrong = FaultOf(left, SizeOf(path));
    if (!m_outcome.wrong.empty()) return;
    m_outcome.handed_over = m_outcome.saved && left.InNoRecord() > 0;
    m_outcome.again = BytesSent("/slow/f") - (kSize - BytesIn(m_missing));
  }
  // Not made yet, not yet of its size, or cut to its content once that was complete; at any other
  // time it has a trailer, all zero until it is saved.
  [[nodiscard]] std::string FaultOf(const PartialFile& left, std::int64_t size) const {
    if (size == -1 || size == 0) return {};
    return size == kSize ? FileDifference(m_folder.File(L"f.~P2S"), m_body) : left.Fault();
  }

  // That a kill costs the bytes of some seconds, and not the download.
  void CheckThePromise() {
    if (m_moment == Moment::kSecondSave && !m_outcome.saved) {
      m_outcome.wrong = "not saved when the second save was due; " + LastLog();
    }
    const bool killed_once = m_moment != Moment::kTwice;
    if (killed_once && !m_fast && m_outcome.saved && m_outcome.again > kMostLost) {
      m_outcome.wrong = std::to_string(m_outcome.again) + " bytes are to be fetched again";
    }
  }

  void Complete() {
    ChildProcess child(m_test, m_temp.path(), For("/fast/f"));
    if (const int code = child.AwaitEnd(kPatience); code != 0) {
      m_outcome.wrong = "the next process ended with " + std::to_string(code) +
                        (m_outcome.saved ? ", a trailer was saved; " : "; ") + LastLog();
      return;
    }
    m_outcome.wrong = FileDifference(m_folder.File(L"f"), m_body);
    if (m_folder.Names() != std::vector<std::wstring>{L"f"}) m_outcome.wrong += " another file";
    const std::vector<Interval> asked = Merged(RangesAskedFor("/fast/f"));
    if (asked != m_missing && !(m_outcome.named && IsAll(asked) && !WasToldTheSize())) {
      m_outcome.wrong += " the next process asked for other bytes than those that were missing";
    }
  }

  static bool IsAll(const std::vector<Interval>& asked) {
    return asked == std::vector<Interval>{{0, kSize}};
  }
  // A file that has its name is complete, which a process knows when it is told the size in time.
  [[nodiscard]] bool WasToldTheSize() const {
    return std::ranges::any_of(m_temp.Names(), [this](const std::wstring& name) {
      return ReadFileBytes(m_temp.File(name)).find("getCdnFileSize 5") != std::string::npos;
    });
  }
  // What the processes have logged; one that ended by itself has moved its log aside.
  [[nodiscard]] std::string LastLog() const {
    std::string all;
    for (const std::wstring& name : m_temp.Names()) {
      const std::string log = ReadFileBytes(m_temp.File(name));
      all += "\n--- a log:\n" + log.substr(log.size() - std::min(log.size(), kLogTail));
    }
    return all;
  }
  [[nodiscard]] std::vector<Interval> RangesAskedFor(const std::string& path) const {
    std::vector<Interval> asked;
    for (const RecordedRequest& request : m_server.RequestsFor(path)) {
      const std::optional<Interval> range = request.AskedRange();
      if (range && *range != kProbe) asked.push_back(*range);
    }
    return asked;
  }
  [[nodiscard]] std::int64_t BytesSent(const std::string& path) const {
    std::int64_t sum = 0;
    for (const RecordedRequest& request : m_server.RequestsFor(path)) {
      if (request.AskedRange() != kProbe) sum += request.body_bytes;
    }
    return sum;
  }

  const std::string m_test;
  const Moment m_moment;
  const bool m_fast;
  const Body m_body;
  const TempFolder m_folder;
  const TempFolder m_temp;
  FaultServer m_server;
  std::string m_delays;
  std::vector<Interval> m_missing{{0, kSize}};
  Outcome m_outcome;
};

Outcome RunRound(const std::string& child_test, int number) {
  Outcome outcome;
  for (int tries = 0; tries < kMostTries; ++tries) {
    outcome = KillRound(child_test, number).Run();
    if (!outcome.finished) return outcome;
  }
  outcome.wrong = "every process was done before it could be killed";
  return outcome;
}

// So many, several at a time.
std::vector<Outcome> RunRounds(const std::string& child_test, int kills) {
  std::mutex mutex;
  std::vector<Outcome> outcomes;
  std::atomic<int> begun{0};
  const auto lane = [&] {
    for (int number = begun++; number < kills; number = begun++) {
      const Outcome outcome = RunRound(child_test, number);
      const std::lock_guard guard(mutex);
      outcomes.push_back(outcome);
    }
  };
  std::vector<std::jthread> lanes;
  for (int i = 0; i < kLanes; ++i) lanes.emplace_back(lane);
  lanes.clear();
  return outcomes;
}

void Print(const std::vector<Outcome>& outcomes) {
  std::int64_t sum = 0;
  std::int64_t most = 0;
  for (const Outcome& outcome : outcomes) {
    sum += outcome.again;
    most = std::max(most, outcome.again);
  }
  const auto saved = std::ranges::count_if(outcomes, &Outcome::saved);
  const auto named = std::ranges::count_if(outcomes, &Outcome::named);
  const auto handed_over = std::ranges::count_if(outcomes, &Outcome::handed_over);
  const auto count = static_cast<std::int64_t>(outcomes.size());
  std::printf(
      "figures: %lld kills of a download of %lld bytes over six connections of %lld bytes "
      "a second: %lld before the first save, %lld after one, %lld with ranges handed over, "
      "%lld complete\n",
      static_cast<long long>(count), static_cast<long long>(kSize),
      static_cast<long long>(kBytesPerSecond), static_cast<long long>(count - saved - named),
      static_cast<long long>(saved), static_cast<long long>(handed_over),
      static_cast<long long>(named));
  std::printf("figures: bytes fetched again: %lld in all, %lld in the mean, %lld at most\n",
              static_cast<long long>(sum), static_cast<long long>(sum / count),
              static_cast<long long>(most));
}

}  // namespace

void KillAndComplete(const std::string& child_test) {
  const std::vector<Outcome> outcomes = RunRounds(child_test, LongRun() ? kLongKills : kShortKills);
  for (const Outcome& outcome : outcomes) EXPECT_EQ(outcome.wrong, "");
  // Else no trailer has been put to the proof.
  EXPECT_TRUE(std::ranges::any_of(outcomes, &Outcome::saved));
  Print(outcomes);
}

}  // namespace Tarnlo::test
