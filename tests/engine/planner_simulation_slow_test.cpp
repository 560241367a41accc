// The planner, the choice of a donor and the ranges alone, without threads and files: random
// schedules of receiving, writing, failing, giving away and refused threads, in which every step of
// a worker may come between any two looks at another, its end included.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include "engine/donor.h"
#include "engine/range_planner.h"
#include "transfer/range_state.h"

namespace Tarnlo::test {
namespace {

constexpr int kSchedules = 250'000;

struct Piece {
  std::int64_t begin = 0;
  std::int64_t end = 0;
};

// How often what is rare has happened.
struct Occurrences {
  int given = 0;
  int refused_starts = 0;
  int refused_cuts = 0;
  int ended_between_looks = 0;     // seen running, and no more when the next thing was asked
  int finished_between_looks = 0;  // of these, with a complete range
  int taken_after_refusal = 0;
};

class Schedule {
 public:
  Schedule(std::uint64_t seed, Occurrences& occurrences)
      : m_random(seed), m_occurrences(occurrences) {}

  // Empty when every byte was written once or is waiting once.
  std::string Run() {
    Plan();
    while (Worker* worker = PickRunning()) Step(*worker);
    return Judge();
  }

 private:
  // With the names that a donor is chosen and cut by; before each look and each cut others go on.
  // The thread says how it went before it ends, as two steps.
  struct Worker {
    Schedule* schedule = nullptr;
    RangeState state;
    RangeRecord record;
    std::int64_t promised = 0;  // room of the receive in progress
    bool receiving = false;
    bool running = false;
    bool ending = false;
    bool covered = false;
    bool wants_work = false;
    bool refused = false;       // a thread for this range
    mutable bool seen = false;  // running, at the last look

    [[nodiscard]] bool IsThreadRunning() const {
      schedule->LetOthersGoOn();
      seen = running;
      return running;
    }
    [[nodiscard]] bool succeeded() const {
      Look();
      return covered;
    }
    [[nodiscard]] std::int64_t GetRangeLength() const {
      Look();
      return state.length();
    }
    [[nodiscard]] std::int64_t received() const {
      Look();
      return state.received();
    }
    [[nodiscard]] std::int64_t GetRemainingBytes() const {
      Look();
      return state.Remaining();
    }
    void CutEnded(std::int64_t length) { state.SetLength(length); }
    bool TryCut(std::int64_t length) {
      Look();
      const bool cut = state.TryCut(length);
      if (!cut) ++schedule->m_occurrences.refused_cuts;
      return cut;
    }
    void TakeRange(std::int64_t start, std::int64_t length, std::int64_t done) {
      state.Assign(start, length, done);
      running = ending = covered = receiving = refused = false;
    }
    void SetSucceeded() { covered = true; }

   private:
    void Look() const {
      schedule->LetOthersGoOn();
      if (!seen || running) return;
      seen = false;
      ++schedule->m_occurrences.ended_between_looks;
      if (covered) ++schedule->m_occurrences.finished_between_looks;
    }
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
      Worker& worker = m_all[i];
      worker.schedule = this;
      worker.record = plan[i];
      worker.TakeRange(plan[i].start, plan[i].length, 0);
      worker.running = plan[i].length > 0;
      worker.covered = !worker.running;
      m_workers.push_back(&worker);
    }
  }

  Worker* PickRunning() {
    const auto first = static_cast<std::size_t>(Below(static_cast<std::int64_t>(m_count)));
    for (std::size_t i = 0; i < m_count; ++i) {
      Worker& worker = *m_workers[(first + i) % m_count];
      if (worker.running) return &worker;
    }
    return nullptr;
  }

  void LetOthersGoOn() {
    if (Below(8) != 0) return;
    for (std::int64_t steps = 1 + Below(4); steps > 0; --steps) {
      if (Worker* worker = PickRunning()) Advance(*worker);
    }
  }

  // A step of the worker, and what the end of it or of others leads to.
  void Step(Worker& worker) {
    Advance(worker);
    const auto wants_work = [](const Worker* each) { return each->wants_work; };
    for (;;) {
      const auto found = std::ranges::find_if(m_workers, wants_work);
      if (found == m_workers.end()) return;
      (*found)->wants_work = false;
      Reassign(static_cast<std::int32_t>(found - m_workers.begin()));
    }
  }

  void Advance(Worker& worker) {
    const std::int64_t position = worker.state.received() + worker.state.buffered();
    if (worker.ending) {
      worker.running = worker.ending = false;
      worker.wants_work = worker.covered;
    } else if (worker.receiving) {
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
    worker.covered = worker.state.received() >= worker.state.length();
    worker.ending = true;
  }

  void Reassign(std::int32_t index) {
    if (m_count == 1) return;
    const bool something_waits = std::ranges::any_of(
        m_workers, [](const Worker* each) { return !each->running && !each->covered; });
    Worker& taker = *m_workers[static_cast<std::size_t>(index)];
    const auto hand_over = [&](const Donor& donor) {
      Worker& giver = *m_workers[static_cast<std::size_t>(donor.index)];
      return HandOver(donor, RangeOwner<Worker>{giver, giver.record},
                      RangeOwner<Worker>{taker, taker.record});
    };
    const auto donor = TakeFromDonor(
        index, [&] { return FindDonor(m_workers); }, hand_over);
    if (!donor) {
      m_left_lying = m_left_lying || something_waits;
      return;
    }
    ++m_occurrences.given;
    Worker& giver = *m_workers[static_cast<std::size_t>(donor->index)];
    if (giver.refused) ++m_occurrences.taken_after_refusal;
    giver.refused = false;
    LetOthersGoOn();
    taker.refused = Below(16) == 0;
    if (taker.refused) ++m_occurrences.refused_starts;
    taker.running = !taker.refused;
  }

  std::string Judge() {
    if (m_left_lying) return "bytes that waited were not given to one who wanted work";
    for (const Worker* const each : m_workers) {
      const Worker& worker = *each;
      const std::int64_t received = worker.state.received();
      if (received > worker.record.length) return "a worker passed its range's end";
      if (worker.covered && received < worker.record.length) return "covered, but not written";
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
  Occurrences& m_occurrences;
  std::array<Worker, 6> m_all;
  std::vector<Worker*> m_workers;
  std::size_t m_count = 0;
  std::int64_t m_length = 0;
  std::int64_t m_most_received = 0;
  std::vector<Piece> m_pieces;
  bool m_left_lying = false;
};

class SlowPlannerSimulation : public testing::TestWithParam<int> {};

TEST_P(SlowPlannerSimulation, QuarterOfAMillionSchedulesWriteOrKeepEveryByteOnce) {
  const std::uint64_t first = std::random_device()();
  Occurrences occurrences;
  for (int i = 0; i < kSchedules; ++i) {
    const std::uint64_t seed = first + static_cast<std::uint64_t>(i);
    Schedule schedule(seed, occurrences);
    ASSERT_EQ(schedule.Run(), "") << "seed " << seed;
  }
  std::printf(
      "%d ranges given on, %d starts and %d cuts refused, %d taken after a refusal; "
      "%d ended between two looks, %d of them finished\n",
      occurrences.given, occurrences.refused_starts, occurrences.refused_cuts,
      occurrences.taken_after_refusal, occurrences.ended_between_looks,
      occurrences.finished_between_looks);
  // A third of what comes of it in the mean.
  EXPECT_GE(occurrences.given, kSchedules / 3);
  EXPECT_GE(occurrences.refused_starts, kSchedules / 50);
  EXPECT_GE(occurrences.taken_after_refusal, kSchedules / 80);
  EXPECT_GE(occurrences.refused_cuts, kSchedules / 180);
  EXPECT_GE(occurrences.ended_between_looks, kSchedules / 50);
  EXPECT_GE(occurrences.finished_between_looks, kSchedules / 60);
}

INSTANTIATE_TEST_SUITE_P(Quarters, SlowPlannerSimulation, testing::Range(0, 4));

}  // namespace
}  // namespace Tarnlo::test
