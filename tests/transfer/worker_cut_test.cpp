// A range that shrinks under a running worker.
#include <random>

#include "tests/transfer/worker_fixture.h"

namespace Tarnlo::test {
namespace {

class WorkerCutTest : public WorkerTest {
 protected:
  // The worker fetched what was left of its range, and not a byte of what was not.
  void ExpectEndsAtItsLength(const TestWorker& worker, const Body& file) {
    const std::int64_t end = worker.GetRangeLength();
    EXPECT_TRUE(worker.succeeded());
    EXPECT_EQ(worker.received(), end);
    EXPECT_EQ(worker.GetRemainingBytes(), 0);
    EXPECT_EQ(static_cast<std::int64_t>(std::filesystem::file_size(m_path)), end);
    EXPECT_EQ(FileDifference(Target(), file, 0, end), "");
  }
};

TEST_F(WorkerCutTest, ThousandsOfCutsOfOneRangeAreKept) {
  constexpr int kCuts = 4000;
  const Body file(std::int64_t{96} << 20);
  // All the cuts together leave more than the first half, so that there is something to cut however
  // fast the worker is.
  Gate gate;
  m_server.Serve("/f", file).StallingAfter(file.size() / 2, gate);
  TestWorker worker;
  Prepare(worker, "/f");
  ASSERT_TRUE(worker.Download(0, file.size(), 0));
  int accepted = 0;
  int refused = 0;
  for (int i = 0; i < kCuts; ++i) {
    const std::int64_t left = worker.GetRemainingBytes();
    const std::int64_t length = worker.GetRangeLength();
    // What it has already is never given up, and a little of its end always.
    if (!worker.TryCut(length - left - 1)) ++refused;
    if (worker.TryCut(length - 1 - left / (2 * kCuts))) ++accepted;
  }
  gate.Open();
  AwaitEnd(worker);
  EXPECT_EQ(refused, kCuts);
  EXPECT_EQ(accepted, kCuts);
  EXPECT_LE(worker.GetRangeLength(), file.size() - kCuts);
  ExpectEndsAtItsLength(worker, file);
}

TEST_F(WorkerCutTest, CutsRightInFrontOfTheWorkerAreKeptOrRefused) {
  const Body file(2 << 20);
  m_server.Serve("/f", file);
  std::mt19937 random(11);
  int accepted = 0;
  int refused = 0;
  for (int round = 0; round < 80; ++round) {
    std::filesystem::remove(m_path);
    TestWorker worker;
    Prepare(worker, "/f");
    ASSERT_TRUE(worker.Download(0, file.size(), 0));
    // Begins at another moment in every round.
    const auto begin = static_cast<std::int64_t>(random() % (1 << 20));
    while (worker.IsThreadRunning()) {
      const std::int64_t position = worker.GetRangeLength() - worker.GetRemainingBytes();
      if (position < begin) continue;
      (worker.TryCut(position + static_cast<std::int64_t>(random() % 40'000)) ? accepted
                                                                              : refused)++;
    }
    ExpectEndsAtItsLength(worker, file);
  }
  EXPECT_GT(accepted, 0);
  EXPECT_GT(refused, 0);
}

}  // namespace
}  // namespace Tarnlo::test
