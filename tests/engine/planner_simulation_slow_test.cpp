// The planner and the ranges alone, without threads and files: random schedules of receiving,
// writing, failing, and giving away, in which every step may come between any two others.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include "engine/range_planner.h"
#include "transfer/range_state.h"

namespace Tarnlo::test {
namespace {

constexpr int kSchedules = 250'000;

struct Piece {
  std::int64_t begin = 0;
  std::int64_t end = 0;
};

class Schedule {
 public:
  explicit Schedule(std::uint64_t seed) : m_random(seed) {}

  // Empty when every byte was written once or is waiting once.
  std::string Run() {
    Plan();
    while (Worker* worker = PickRunning()) Step(*worker);
    return Judge();
  }

 private:
  struct Worker {
    RangeState state;
    RangeRecord record;
    std::int64_t promised = 0;  // room of the receive in progress
    bool receiving = false;
    bool running = false;
    bool succeeded = false;
  };

  std::int64_t Below(std::int64_t bound) {
    // splitmix64: cheap to begin a million times.
    std::uint64_t bits = m_random += 0x9E3779B97F4A7C15;
    bits = (bits ^ (bits >> 30)) * 0xBF58476D1CE4E5B9;
    bits = (bits ^ (bits >> 27)) * 0x94D049BB133111EB;
    return static_cast<std::int64_t>((bits ^ (bits >> 31)) % static_cast<std::uint64_t>(bound));
  }

  void Plan() {
    static constexpr std::array<std::int64_t, 6> kMost = {8,       1'000,     102'401,
                                                          614'500, 1'300'000, 3'000'000};
    m_length = 1 + Below(kMost[static_cast<std::size_t>(Below(6))]);
    m_count = static_cast<std::size_t>(1 + Below(6));
    m_most_received = m_length / 8 + 1 + Below(m_length);
    const std::vector<RangeRecord> plan = PlanRanges(m_length, m_count);
    for (std::size_t i = 0; i < m_count; ++i) {
      m_workers[i].record = plan[i];
      Begin(m_workers[i]);
    }
  }

  void Begin(Worker& worker) {
    worker.state.Assign(worker.record.start, worker.record.length, 0);
    worker.running = worker.record.length > 0;
    worker.succeeded = !worker.running;
    worker.receiving = false;
  }

  Worker* PickRunning() {
    const auto first = static_cast<std::size_t>(Below(static_cast<std::int64_t>(m_count)));
    for (std::size_t i = 0; i < m_count; ++i) {
      Worker& worker = m_workers[(first + i) % m_count];
      if (worker.running) return &worker;
    }
    return nullptr;
  }

  // A step of the worker, and what its end leads to.
  void Step(Worker& worker) {
    Advance(worker);
    if (!worker.running && worker.succeeded) Reassign(worker);
  }

  void Advance(Worker& worker) {
    const std::int64_t position = worker.state.received() + worker.state.buffered();
    if (worker.receiving) {
      const std::int64_t count = 1 + Below(worker.promised);
      worker.state.SetBuffered(worker.state.buffered() + count);
      worker.receiving = false;
    } else if (Below(40) == 0) {
      End(worker);  // fails: what is buffered is lost
    } else if (Below(3) == 0) {
      Write(worker);
    } else {
      worker.promised = worker.state.Claim(position, 1 + Below(m_most_received));
      worker.receiving = worker.promised > 0;
      if (worker.receiving) return;
      Write(worker);
      End(worker);
    }
  }

  void Write(Worker& worker) {
    const std::int64_t count = worker.state.buffered();
    const std::int64_t begin = worker.record.start + worker.state.received();
    worker.state.AddReceived(count);
    if (count > 0) m_pieces.push_back({begin, begin + count});
  }

  void End(Worker& worker) {
    worker.state.SetBuffered(0);
    worker.state.Unclaim(worker.state.received());
    worker.running = false;
    worker.succeeded = worker.state.received() >= worker.state.length();
  }

  struct Look {
    Worker* donor = nullptr;
    std::int64_t remaining = 0;
    bool running = false;
  };
  Look FindLargest() {
    Look best;
    for (std::size_t i = 0; i < m_count; ++i) {
      Worker& worker = m_workers[i];
      if (worker.succeeded) continue;
      if (!worker.running) return {&worker, worker.state.length() - worker.state.received(), false};
      const std::int64_t remaining = worker.state.Remaining();
      if (remaining > best.remaining) best = {&worker, remaining, true};
    }
    return best;
  }

  // Between the look and the cut anybody may go on.
  void Reassign(Worker& worker) {
    if (m_count == 1) return;
    for (;;) {
      const Look look = FindLargest();
      if (look.donor == nullptr || look.donor == &worker) return;
      if (look.running && look.donor->running && Below(2) == 0) Advance(*look.donor);
      const std::optional<std::int64_t> share = GiveAway(look.remaining, look.running);
      if (!share) return;
      const std::int64_t kept = look.donor->record.length - *share;
      if (!look.running) {
        look.donor->state.SetLength(kept);
        look.donor->succeeded = true;
      } else if (!look.donor->state.TryCut(kept)) {
        continue;
      }
      worker.record = {look.donor->record.start + kept, *share, 0};
      look.donor->record.length = kept;
      Begin(worker);
      return;
    }
  }

  std::string Judge() {
    for (std::size_t i = 0; i < m_count; ++i) {
      const Worker& worker = m_workers[i];
      const std::int64_t received = worker.state.received();
      if (received > worker.record.length) return "a worker passed its range's end";
      if (worker.succeeded && received < worker.record.length) return "covered, but not written";
      if (received < worker.record.length) {
        m_pieces.push_back(
            {worker.record.start + received, worker.record.start + worker.record.length});
      }
    }
    std::ranges::sort(m_pieces, {}, &Piece::begin);
    std::int64_t position = 0;
    for (const Piece& piece : m_pieces) {
      if (piece.begin != position) {
        return "byte " + std::to_string(std::min(piece.begin, position)) +
               (piece.begin < position ? " twice" : " never");
      }
      position = piece.end;
    }
    return position == m_length ? "" : "the end is missing";
  }

  std::uint64_t m_random;
  std::array<Worker, 6> m_workers;
  std::size_t m_count = 0;
  std::int64_t m_length = 0;
  std::int64_t m_most_received = 0;
  std::vector<Piece> m_pieces;
};

class SlowPlannerSimulation : public testing::TestWithParam<int> {};

TEST_P(SlowPlannerSimulation, QuarterOfAMillionSchedulesWriteOrKeepEveryByteOnce) {
  const std::uint64_t first = std::random_device()();
  for (int i = 0; i < kSchedules; ++i) {
    const std::uint64_t seed = first + static_cast<std::uint64_t>(i);
    Schedule schedule(seed);
    ASSERT_EQ(schedule.Run(), "") << "seed " << seed;
  }
}

INSTANTIATE_TEST_SUITE_P(Quarters, SlowPlannerSimulation, testing::Range(0, 4));

}  // namespace
}  // namespace Tarnlo::test
