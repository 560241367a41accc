// Whose bytes a connection that has finished its own is given, how many, and by which steps.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>

#include "engine/range_planner.h"

namespace Tarnlo {

// Templates, so that the simulation of the planner runs these very steps over workers without
// threads. A worker has IsThreadRunning, succeeded, GetRangeLength, received, GetRemainingBytes,
// CutEnded, TryCut, TakeRange and SetSucceeded, as CDownloadBase says.

struct Donor {
  std::int32_t index = -1;
  std::int64_t remaining = 0;
  bool running = false;
};

// What counts is the bytes: a worker may have failed after its last one was written.
template <typename Worker>
bool IsComplete(const Worker& worker) {
  return worker.GetRangeLength() > 0 && worker.received() >= worker.GetRangeLength();
}

// Of workers by pointer: the first that failed, with all that it left; else the one with the most
// left, the earliest of equals. Nothing when nobody has anything left.
template <typename Workers>
std::optional<Donor> FindDonor(const Workers& workers) {
  std::optional<Donor> best;
  for (std::size_t i = 0; i < workers.size(); ++i) {
    const auto& worker = *workers[i];
    // In this order: a thread that is seen to have ended has set its result for good, so a range
    // that was finished between the two looks is not taken for a failed one.
    const bool running = worker.IsThreadRunning();
    if (worker.succeeded()) continue;
    Donor donor{static_cast<std::int32_t>(i), 0, running};
    if (!running && IsComplete(worker)) continue;
    if (!running) {
      donor.remaining = worker.GetRangeLength() - worker.received();
      return donor;
    }
    donor.remaining = worker.GetRemainingBytes();
    if (donor.remaining > (best ? best->remaining : 0)) best = donor;
  }
  return best;
}

enum class Handover { kDone, kTryAgain, kNothing };

// A worker and the record of its range.
template <typename Worker>
struct RangeOwner {
  Worker& worker;
  RangeRecord& record;
};

// The one place where bytes change hands: the donor has accepted the cut before anybody else is
// given what lies beyond.
template <typename Worker>
Handover HandOver(const Donor& donor, const RangeOwner<Worker>& giver,
                  const RangeOwner<Worker>& taker) {
  const std::optional<std::int64_t> share = GiveAway(donor.remaining, donor.running);
  if (!share) return Handover::kNothing;
  const std::int64_t kept = giver.record.length - *share;
  if (!donor.running) {
    giver.worker.CutEnded(kept);
  } else if (!giver.worker.TryCut(kept)) {
    return Handover::kTryAgain;
  }
  taker.record = RangeRecord{giver.record.start + kept, *share, 0};
  giver.record.length = kept;
  // A range that began again may have had more before.
  if (giver.record.done > kept) giver.record.done = kept;
  taker.worker.TakeRange(taker.record.start, taker.record.length, taker.record.done);
  if (!donor.running) giver.worker.SetSucceeded();
  return Handover::kDone;
}

// Looks and hands over to worker `index` until a donor has accepted: `find` looks, `hand_over` does
// it. The donor; nothing when there is nothing to give.
template <typename Find, typename HandOverTo>
std::optional<Donor> TakeFromDonor(std::int32_t index, Find find, HandOverTo hand_over) {
  for (;;) {
    const std::optional<Donor> donor = find();
    if (!donor || donor->index == index) return std::nullopt;
    const Handover handover = hand_over(*donor);
    if (handover == Handover::kDone) return donor;
    if (handover == Handover::kNothing) return std::nullopt;
  }
}

}  // namespace Tarnlo
