// Thousands of ranges that change hands while bytes arrive as fast as they can.
#include <gtest/gtest.h>

#include <deque>
#include <random>
#include <string>

#include "tests/engine/table_fixture.h"

namespace Tarnlo::test {
namespace {

constexpr std::int64_t kMebibyte = 1 << 20;

class SlowReassign : public TableTest {
 protected:
  SlowReassign() : m_seed(std::random_device()()), m_random(m_seed) {}

  std::int64_t Random(std::int64_t least, std::int64_t most) {
    return std::uniform_int_distribution<std::int64_t>(least, most)(m_random);
  }
  // Few bytes as often as many.
  std::int64_t RandomSize(std::int64_t most) {
    const std::int64_t bound = std::int64_t{1} << Random(0, 63);
    return 1 + Random(0, std::min(bound < 1 ? most : bound, most) - 1);
  }

  // One worker with nearly everything and five that want work.
  std::vector<TableWorker> Uneven(std::int64_t large, const std::vector<std::string>& paths) {
    std::vector<TableWorker> workers;
    const std::int64_t large_one = Random(0, 5);
    std::int64_t start = 0;
    for (std::int64_t i = 0; i < 6; ++i) {
      const std::int64_t length = i == large_one ? large : RandomSize(300'000);
      const auto path =
          static_cast<std::size_t>(Random(0, static_cast<std::int64_t>(paths.size()) - 1));
      workers.push_back({paths[path], {start, length, 0}});
      start += length;
    }
    return workers;
  }
  static std::int64_t SizeOfAll(const std::vector<TableWorker>& workers) {
    return workers.back().record.start + workers.back().record.length;
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
    const auto workers = Uneven(round == 0 ? 64 * kMebibyte : Random(700'000, 2'000'000), {path});
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

class SlowFailingReassign : public SlowReassign, public testing::WithParamInterface<int> {};

TEST_P(SlowFailingReassign, LosesNoByte) {
  SCOPED_TRACE("seed " + std::to_string(m_seed));
  for (int round = 0; round < 20 && !HasFailure(); ++round) {
    const std::string prefix = "/" + std::to_string(round);
    const std::vector<std::string> paths = {prefix + "good", prefix + "reset", prefix + "short",
                                            prefix + "closes", prefix + "refused"};
    const auto workers = Uneven(RandomSize(4 * kMebibyte), paths);
    const Body body(SizeOfAll(workers), m_seed + static_cast<unsigned>(round));
    Server().Serve(paths[0], body);
    // Each fails a few times and then does as it is asked.
    for (int time = 0; time < 3; ++time) {
      Server().Serve(paths[1], body).Times(1).ResettingAfter(RandomSize(500'000));
      Server().Serve(paths[2], body).Times(1).AtMost(RandomSize(500'000));
      Server().Serve(paths[3], body).Times(1).ClosingAfter(RandomSize(500'000));
      Server().Serve(paths[4], body).Times(1).WithStatus("503 Busy");
    }
    for (std::size_t i = 1; i < paths.size(); ++i) Server().Serve(paths[i], body);
    Start(workers);
    RunToTheEnd();
    const std::int64_t missing = Trailer{0, Table().Records()}.MissingBytes();
    EXPECT_EQ(Table().Remaining(true), missing);
    EXPECT_EQ(Table().AllRangesDone(), missing == 0);
    EXPECT_EQ(RangesDifference(File(), body, Table().Records()), "");
  }
}

INSTANTIATE_TEST_SUITE_P(SixtyFiles, SlowFailingReassign, testing::Range(0, 3));

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
