// The byte ranges of one job: which worker owns which, and how far each is.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

#include "engine/donor.h"
#include "engine/range_record.h"
#include "support/os/lock.h"
#include "transfer/download_http.h"

namespace Tarnlo {

// Owns the workers of an attempt and the record of each one's range.
//
// Threads: the job thread makes, starts, re-assigns, stops and frees; workers report what they have
// written; any thread asks for sums. Workers and records are replaced and freed under the lock that
// all of them take; no thread is waited for and no host code called with the lock held.
// Lifetime: owned by the job, which frees it before its probe worker.
// Invariant: each byte of the file is at any moment written, assigned to exactly one worker, or
// waiting in the record of a worker that has no thread and has not succeeded. `Reassign` alone
// changes who owns what; a range counts as covered only when each of its bytes is written or
// another's.
class WorkerTable {
 public:
  using WorkerFactory = std::function<std::unique_ptr<CDownloadHttp>(std::int32_t index)>;

  // `count` workers and as many empty records, in the place of those before. False when they could
  // not be made; there are none then.
  bool Create(std::int32_t count, const WorkerFactory& make);
  // Stops and destroys the workers, forgets the records.
  void Free();

  [[nodiscard]] bool exists() const;
  [[nodiscard]] bool HasLengths() const;  // at least one record has a length of 1 or more
  void SetRecords(const std::vector<RangeRecord>& records);  // as many as there are workers
  void ClearRecords();
  [[nodiscard]] std::vector<RangeRecord> Records() const;

  // Sets worker `index` to work on its record.
  bool Start(std::int32_t index);

  // Gives worker `index`, whose range is complete and whose thread has ended, the whole rest of a
  // failed worker's range or half of what the busiest has left. False when there is nothing to give
  // or the worker could not be started; in the latter case the bytes wait in its record.
  bool Reassign(std::int32_t index);

  // As FindDonor says.
  [[nodiscard]] std::optional<Donor> FindLargestRemaining() const;

  // Worker `index` has `done` bytes in the file; 0 changes nothing.
  void StoreDone(std::int32_t index, std::int64_t done);

  [[nodiscard]] bool AllRangesDone() const;
  // Bytes not yet in the file; with `count_buffered`, not yet received. Nothing before the workers
  // have been given their ranges: those without one would count as done.
  [[nodiscard]] std::optional<std::int64_t> Remaining(bool count_buffered) const;

  // The threads that there are, ended or not, with the worker of each.
  struct RunningThread {
    os::Waitable thread;
    std::int32_t index = 0;
  };
  [[nodiscard]] std::vector<RunningThread> Threads() const;
  [[nodiscard]] bool succeeded(std::int32_t index) const;
  void CloseThread(std::int32_t index);

  void SignalStop();
  // Signals every worker before it waits for the first.
  void Stop();

 private:
  [[nodiscard]] bool SharedOut() const REQUIRES(m_lock);
  Handover HandOverTo(std::int32_t index, const Donor& donor);
  // Null when there is no such worker. Only the job thread may use it without the lock: it alone
  // replaces workers.
  [[nodiscard]] CDownloadHttp* Worker(std::int32_t index) const;

  using Workers = std::vector<std::unique_ptr<CDownloadHttp>>;
  mutable os::Lock m_lock;
  Workers m_workers GUARDED_BY(m_lock);  // replaced by the job thread alone
  std::vector<RangeRecord> m_records GUARDED_BY(m_lock);
};

}  // namespace Tarnlo
