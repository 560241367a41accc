// A worker leaves a drained connection to gather bytes, and never waits while they are flowing.
#include "tests/faults/faults.h"
#include "tests/transfer/worker_fixture.h"

namespace Tarnlo::test {
namespace {

constexpr std::uint32_t kGatherMs = 1;
constexpr std::int64_t kReceive = 20'480;  // what a receive has room for
constexpr std::int64_t kLeading = 100;     // of the body, with the head

using Numbers = std::vector<std::int64_t>;

class WorkerGatherTest : public WorkerTest {
 protected:
  void SetUp() override {
    MakeTarget(m_file.size());
    Prepare(m_worker, "/f");
    m_faults.WatchWaits(kGatherMs);
  }
  // Holds the worker from the write of the leading bytes on until these bytes have been sent. They
  // are one send, which the loopback carries as one segment.
  void HoldUntilSent(std::int64_t bytes) {
    m_bytes = bytes;
    WorkerSetup setup = MakeSetup();
    setup.progress_context = this;
    setup.progress = [](std::int32_t, std::int64_t, std::int64_t, void* context) {
      auto& self = *static_cast<WorkerGatherTest*>(context);
      self.m_gate.Open();
      self.AwaitSent();
    };
    m_worker.Configure(setup);
  }
  void AwaitSent() const {
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    while (m_server.Requests().at(0).body_bytes < m_bytes &&
           std::chrono::steady_clock::now() < end) {
      std::this_thread::yield();
    }
  }
  FaultScript& Serve() {
    return m_server.Serve("/f", m_file).LeadingBody(kLeading).StallingAfter(kLeading, m_gate);
  }

  const Body m_file{200'000};
  Faults m_faults;
  Gate m_gate;
  TestWorker m_worker;
  std::int64_t m_bytes = 0;
};

TEST_F(WorkerGatherTest, ReceivesThatFillTheirBufferAreFollowedByNoWait) {
  Serve();
  HoldUntilSent(2 * kReceive);
  Run(m_worker, 0, kLeading + 2 * kReceive);
  EXPECT_TRUE(m_worker.succeeded());
  EXPECT_EQ(m_observer.NumbersOf(kEventBufferedBytes), (Numbers{kReceive, 2 * kReceive, 0}));
  EXPECT_EQ(m_faults.Waits(), 0);
}

TEST_F(WorkerGatherTest, ReceiveThatFallsShortIsFollowedByOneWait) {
  Serve().Times(1).ClosingAfter(kLeading + kReceive - 1);
  m_server.Serve("/f", m_file).WithStatus("404 Not Found");
  HoldUntilSent(kReceive - 1);
  Run(m_worker, 0, m_file.size());
  EXPECT_EQ(m_worker.received(), kLeading + kReceive - 1);
  EXPECT_EQ(m_observer.NumbersOf(kEventBufferedBytes), (Numbers{kReceive - 1, 0}));
  EXPECT_EQ(m_faults.Waits(), 1);
}

}  // namespace
}  // namespace Tarnlo::test
