// Thousands of ranges that change hands while bytes arrive as fast as they can.
#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <deque>
#include <iterator>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "tests/engine/table_fixture.h"
#include "tests/faults/faults.h"

namespace Tarnlo::test {
namespace {

constexpr std::int64_t kMebibyte = 1 << 20;

class SlowReassign : public TableTest {
 protected:
  SlowReassign() : m_seed(std::random_device()()), m_random(m_seed) {}

  std::int64_t Random(std::int64_t least, std::int64_t most) {
    return std::uniform_int_distribution<std::int64_t>(least, most)(m_random);
  }
  // From 2^exponent on, below its double.
  std::int64_t SizeOfOrder(std::int64_t exponent, std::int64_t most) {
    const std::int64_t least = std::int64_t{1} << exponent;
    return Random(least, std::min(2 * least - 1, most));
  }
  // Each order of size as often as any other.
  std::int64_t RandomSize(std::int64_t most) { return SizeOfOrder(Random(0, OrderOf(most)), most); }
  static std::int64_t OrderOf(std::int64_t size) {
    return static_cast<std::int64_t>(std::bit_width(static_cast<std::uint64_t>(size))) - 1;
  }

  // One worker with nearly everything and five that want work.
  std::vector<TableWorker> Uneven(std::int64_t large, const std::string& path = {}) {
    std::vector<TableWorker> workers;
    const std::int64_t large_one = Random(0, 5);
    std::int64_t start = 0;
    for (std::int64_t i = 0; i < 6; ++i) {
      const std::int64_t length = i == large_one ? large : RandomSize(300'000);
      workers.push_back({path, {start, length, 0}});
      start += length;
    }
    return workers;
  }
  static std::int64_t SizeOfAll(const std::vector<TableWorker>& workers) {
    return workers.back().record.start + workers.back().record.length;
  }

  void ExpectARightTable(const Body& body) {
    const std::int64_t missing = Trailer{0, Table().Records()}.MissingBytes();
    EXPECT_EQ(Table().Remaining(true), missing);
    EXPECT_EQ(Table().AllRangesDone(), missing == 0);
    EXPECT_EQ(RangesDifference(File(), body, Table().Records()), "");
  }

  const unsigned m_seed;
  std::mt19937_64 m_random;
};

class SlowFastReassign : public SlowReassign, public testing::WithParamInterface<int> {};

TEST_P(SlowFastReassign, LosesNoByte) {
  SCOPED_TRACE("seed " + std::to_string(m_seed));
  int given = 0;
  for (int round = 0; given < 500 && !HasFailure(); ++round) {
    const std::string path = "/" + std::to_string(round);
    const auto workers = Uneven(round == 0 ? 64 * kMebibyte : Random(700'000, 2'000'000), path);
    const Body body(SizeOfAll(workers), m_seed + static_cast<unsigned>(round));
    Server().Serve(path, body);
    Start(workers);
    given += RunToTheEnd();
    EXPECT_TRUE(Table().AllRangesDone());
    EXPECT_EQ(Table().Remaining(true), 0);
    EXPECT_EQ(FileDifference(File(), body), "");
  }
}

INSTANTIATE_TEST_SUITE_P(TwoThousand, SlowFastReassign, testing::Range(0, 4));

// Files of every order of size up to 64 MiB, in which whoever may fail fails: servers that answer
// with an error, reset, close, send less than was asked for, or fall silent; connections, threads
// and writes that are refused.
class SlowFailingReassign : public SlowReassign, public testing::WithParamInterface<int> {
 protected:
  static constexpr int kLeastGiven = 150;

  SlowFailingReassign() { m_faults.DivideWaits(20); }

  // The first path is good; each other one fails three times and then is too.
  std::vector<std::string> ServeFaults(int round, const Body& body) {
    const std::string prefix = "/" + std::to_string(round);
    std::vector<std::string> paths;
    for (const char* name : {"good", "reset", "short", "closes", "refused", "heals", "falls"}) {
      paths.push_back(prefix + name);
    }
    for (int time = 0; time < 3; ++time) {
      const auto add = [&](std::size_t path) -> FaultScript& {
        return Server().Serve(paths[path], body).Times(1);
      };
      add(1).ResettingAfter(RandomSize(500'000));
      add(2).AtMost(RandomSize(500'000));
      add(3).ClosingAfter(RandomSize(500'000));
      add(4).WithStatus("503 Busy");
      const Gate& silence = m_silences.emplace_back(NewGate());
      const std::int64_t until = RandomSize(500'000);
      add(5).StallingAfter(until, silence);
      add(6).StallingAfter(until, silence).ResettingAfter(until + RandomSize(500'000));
    }
    for (const std::string& path : paths) Server().Serve(path, body);
    return paths;
  }
  int Silent() const {  // so far
    int silent = 0;
    for (const Gate& gate : m_silences) silent += gate.Arrivals();
    return silent;
  }
  // Once nothing moves: the waits of some for more bytes fail, as they do after ten seconds, or the
  // silent servers go on.
  void EndTheSilence() {
    const std::int64_t left = Table().Remaining(true).value_or(0);
    const bool moves = std::exchange(m_left, left) != left;
    if (moves || Silent() == 0) return;
    ++m_ended_silences;
    if (Random(0, 1) == 0) {
      m_faults.Fail(os::Call::kWaitReadable, 1, static_cast<int>(Random(1, 6)));
      return;
    }
    for (const Gate& gate : m_silences) gate.Open();
  }
  void RefuseSome() {
    m_faults.Fail(os::Call::kConnect, static_cast<int>(Random(1, 12)),
                  static_cast<int>(Random(1, 4)));
    m_faults.Fail(os::Call::kThread, static_cast<int>(Random(1, 4)));
    m_faults.Fail(os::Call::kWrite, static_cast<int>(Random(1, 20)));
    m_faults.Fail(os::Call::kWriteWhole, static_cast<int>(Random(1, 20)));
  }
  void RefuseNothing() {
    using os::Call;
    for (const Call call :
         {Call::kConnect, Call::kThread, Call::kWrite, Call::kWriteWhole, Call::kWaitReadable}) {
      m_faults.Fail(call, 1, 0);
    }
  }

  Faults m_faults;
  std::vector<Gate> m_silences;  // of this round
  std::int64_t m_left = -1;
  int m_ended_silences = 0;
};

TEST_P(SlowFailingReassign, LosesNoByte) {
  SCOPED_TRACE("seed " + std::to_string(m_seed));
  constexpr std::int64_t kLargest = 64 * kMebibyte;
  const std::int64_t orders = OrderOf(kLargest) + 1;
  int given = 0;
  for (int round = 0; (round < orders || given < kLeastGiven) && !HasFailure(); ++round) {
    m_silences.clear();
    auto workers = Uneven(SizeOfOrder(round % orders, kLargest));
    const Body body(SizeOfAll(workers), m_seed + static_cast<unsigned>(round));
    const std::vector<std::string> paths = ServeFaults(round, body);
    for (TableWorker& worker : workers) {
      worker.path = paths[static_cast<std::size_t>(Random(0, std::ssize(paths) - 1))];
    }
    Start(workers);
    RefuseSome();
    given += RunToTheEnd([this] { EndTheSilence(); });
    RefuseNothing();
    ExpectARightTable(body);
  }
  EXPECT_GT(m_faults.Failed(), 0);
  EXPECT_GT(m_ended_silences, 0);
}

INSTANTIATE_TEST_SUITE_P(FourHundredAndFifty, SlowFailingReassign, testing::Range(0, 3));

// A connection that is refused is noticed after ten seconds, as is one that brings nothing.
TEST_F(SlowReassign, OfConnectionsThatAreSilentOrRefusedTheRefusedOnesLastBytesAloneAreLeft) {
  constexpr std::int64_t kLength = 400'000;
  std::vector<TableWorker> workers;
  for (std::int64_t i = 0; i < 6; ++i) {
    workers.push_back({"/" + std::to_string(i), {i * kLength, kLength, 0}});
  }
  const Body body(SizeOfAll(workers));
  Server().Serve("/0", body);
  {
    const TestListener nobody("127.0.0.1", 0, 1);
    workers[1].path = "http://127.0.0.1:" + std::to_string(nobody.port()) + "/f";
  }
  const Gate& silence = NewGate();
  for (std::size_t i = 2; i < workers.size(); ++i) {
    Server().Serve(workers[i].path, body).Times(1).StallingAfter(10'000, silence);
    Server().Serve(workers[i].path, body);
  }
  Start(workers);
  EXPECT_GE(RunToTheEnd(), 5);  // at least one of each who could not go on
  ExpectARightTable(body);
  const std::vector<RangeRecord> left = Table().Records();
  EXPECT_EQ(left[1].done, 0);
  EXPECT_EQ(Table().Remaining(true), left[1].length);
  EXPECT_LT(left[1].length, 102'400);
}

// Whole jobs against servers that fail now and then: each ends with a good file, or with a
// trailer that is right to the byte.
class SlowFaultyServer : public testing::Test {
 protected:
  SlowFaultyServer() : m_seed(std::random_device()()), m_random(m_seed) {}

  std::int64_t Random(std::int64_t most) {
    return std::uniform_int_distribution<std::int64_t>(1, most)(m_random);
  }
  void ServeFaults(TestJob& job, const Body& body) {
    for (int fault = 0; fault < 8; ++fault) {
      FaultScript& script = job.Serve("/f", body).ForPieces().Times(1);
      const std::int64_t bytes = Random(300'000);
      switch (Random(5)) {
        case 1:
          script.ResettingAfter(bytes);
          break;
        case 2:
          script.ClosingAfter(bytes);
          break;
        case 3:
          script.WithStatus("503 Busy");
          break;
        case 4:
          script.RunningOver(bytes);
          break;
        default:
          break;
      }
    }
    job.Serve("/f", body);
  }
  static void ExpectRightEnd(TestJob& job, const Body& body) {
    const std::int32_t result = job.AwaitResult();
    job.AwaitRunEnd();
    EXPECT_EQ(job.Observer().CountOf(kEventFinished), 1u);
    if (result == kResultSuccess) {
      EXPECT_EQ(FileDifference(job.Target(L"f"), body), "");
      return;
    }
    EXPECT_EQ(result, kResultTooFewBytes);
    const Trailer trailer = ReadTrailer(job.Temporary(L"f"), body.size());
    EXPECT_EQ(trailer.count, 6u);
    EXPECT_EQ(RangesDifference(job.Temporary(L"f"), body, trailer.records), "");
  }

  const unsigned m_seed;
  std::mt19937_64 m_random;
};

TEST_F(SlowFaultyServer, LeavesAGoodFileOrAGoodTrailer) {
  SCOPED_TRACE("seed " + std::to_string(m_seed));
  for (int batch = 0; batch < 3; ++batch) {
    std::deque<TestJob> jobs;
    std::deque<Body> bodies;
    for (int i = 0; i < 8; ++i) {
      const Body& body = bodies.emplace_back(Random(3'000'000), m_seed + static_cast<unsigned>(i));
      ServeFaults(jobs.emplace_back(), body);
      ASSERT_TRUE(jobs.back().Start("/f"));
    }
    for (std::size_t i = 0; i < jobs.size(); ++i) ExpectRightEnd(jobs[i], bodies[i]);
  }
}

}  // namespace
}  // namespace Tarnlo::test
