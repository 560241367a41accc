// How far one worker is with its byte range, and how far the range still reaches.
#pragma once

#include <cstdint>

#include "support/os/lock.h"

namespace Tarnlo {

inline constexpr std::int64_t kOpenEnd = -1;  // a range to the end of a file of unknown size

// The counters of a worker that other threads read.
//
// Threads: the worker advances, the job thread assigns and cuts, any thread reads. The length has
// one lock, received and buffered share another, so that a flush, which moves bytes from one to the
// other, never shows a wrong sum. No two locks are held together.
// Invariant: received + buffered <= claimed <= length, while the length is positive. `claimed` is
// the end, counted from the range's start, of what the receive now in progress may still take: a
// cut below it is not accepted, so a worker never passes the end of its range, whenever it is cut.
class RangeState {
 public:
  // A new range; nothing is buffered and what was received before is claimed. Only while no thread
  // of the worker runs.
  void Assign(std::int64_t start, std::int64_t length, std::int64_t received);

  void SetLength(std::int64_t length);
  // Ends the range earlier, at `length` from its start. False, and nothing changed, when the worker
  // may already be taking bytes beyond. At least a byte stays, and an open end is not cut.
  bool TryCut(std::int64_t length);

  // Before a receive or a write of up to `wanted` bytes behind `position` (counted from the start):
  // what of it the range still has room for, now claimed; `wanted` for an open end, 0 at the end.
  std::int64_t Claim(std::int64_t position, std::int64_t wanted);
  // Takes the claim back to `position`: nothing beyond it is being received.
  void Unclaim(std::int64_t position);

  void SetBuffered(std::int64_t count);
  // `count` bytes are in the file: they leave what is buffered. The new received count.
  std::int64_t AddReceived(std::int64_t count);
  // The range begins again at its first byte.
  void StartOver();

  [[nodiscard]] std::int64_t start() const;
  [[nodiscard]] std::int64_t length() const;
  [[nodiscard]] std::int64_t received() const;
  [[nodiscard]] std::int64_t buffered() const;
  // Length - received - buffered.
  [[nodiscard]] std::int64_t Remaining() const;

 private:
  mutable os::Lock m_csRange;
  std::int64_t m_nRangeStart GUARDED_BY(m_csRange) = 0;
  std::int64_t m_nRangeLength GUARDED_BY(m_csRange) = 0;
  std::int64_t m_nClaimed GUARDED_BY(m_csRange) = 0;
  mutable os::Lock m_csReceived;
  std::int64_t m_nReceived GUARDED_BY(m_csReceived) = 0;
  std::int64_t m_nBuffered GUARDED_BY(m_csReceived) = 0;
};

}  // namespace Tarnlo
