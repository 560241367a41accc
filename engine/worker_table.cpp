#include "engine/worker_table.h"

#include <algorithm>
#include <exception>

namespace Tarnlo {

bool WorkerTable::Create(std::int32_t count, const WorkerFactory& make) {
  Free();
  Workers workers;
  std::vector<RangeRecord> records;
  try {
    for (std::int32_t index = 0; index < count; ++index) {
      workers.push_back(make(index));
      if (!workers.back()) return false;
    }
    records.resize(workers.size());
  } catch (const std::exception&) {
    return false;
  }
  const os::LockGuard guard(m_lock);
  m_workers.swap(workers);
  m_records.swap(records);
  return true;
}

void WorkerTable::Free() {
  Stop();
  Workers workers;
  std::vector<RangeRecord> records;
  {
    const os::LockGuard guard(m_lock);
    m_workers.swap(workers);
    m_records.swap(records);
  }
}

bool WorkerTable::exists() const {
  const os::LockGuard guard(m_lock);
  return !m_workers.empty();
}

bool WorkerTable::HasLengths() const {
  const os::LockGuard guard(m_lock);
  return SharedOut();
}

bool WorkerTable::SharedOut() const {
  return std::any_of(m_records.begin(), m_records.end(),
                     [](const RangeRecord& record) { return record.length >= 1; });
}

void WorkerTable::SetRecords(const std::vector<RangeRecord>& records) {
  const os::LockGuard guard(m_lock);
  for (std::size_t i = 0; i < m_records.size() && i < records.size(); ++i) {
    m_records[i] = records[i];
    m_workers[i]->TakeRange(records[i].start, records[i].length, records[i].done);
  }
}

void WorkerTable::ClearRecords() {
  const os::LockGuard guard(m_lock);
  for (RangeRecord& record : m_records) record = RangeRecord{};
}

std::vector<RangeRecord> WorkerTable::Records() const {
  const os::LockGuard guard(m_lock);
  return m_records;
}

CDownloadHttp* WorkerTable::Worker(std::int32_t index) const {
  const os::LockGuard guard(m_lock);
  const auto i = static_cast<std::size_t>(index);
  return index >= 0 && i < m_workers.size() ? m_workers[i].get() : nullptr;
}

bool WorkerTable::Start(std::int32_t index) {
  RangeRecord record;
  {
    const os::LockGuard guard(m_lock);
    record = m_records[static_cast<std::size_t>(index)];
  }
  return Worker(index)->Download(record.start, record.length, record.done);
}

std::optional<Donor> WorkerTable::FindLargestRemaining() const {
  const os::LockGuard guard(m_lock);
  return FindDonor(m_workers);
}

bool WorkerTable::Reassign(std::int32_t index) {
  const std::vector<RangeRecord> records = Records();
  if (records.size() <= 1 || records[static_cast<std::size_t>(index)].length == kOpenEnd)
    return false;
  const std::optional<Donor> donor = TakeFromDonor(
      index, [&] { return FindLargestRemaining(); },
      [&](const Donor& found) { return HandOverTo(index, found); });
  if (!donor) return false;
  const bool started = Start(index);
  Worker(donor->index)->ReportRangeLength();
  return started;
}

// Readers of the sums see the range with one owner or with the other.
Handover WorkerTable::HandOverTo(std::int32_t index, const Donor& donor) {
  const auto from = static_cast<std::size_t>(donor.index);
  const auto to = static_cast<std::size_t>(index);
  const os::LockGuard guard(m_lock);
  return HandOver(donor, RangeOwner<CDownloadHttp>{*m_workers[from], m_records[from]},
                  RangeOwner<CDownloadHttp>{*m_workers[to], m_records[to]});
}

void WorkerTable::StoreDone(std::int32_t index, std::int64_t done) {
  const os::LockGuard guard(m_lock);
  const auto i = static_cast<std::size_t>(index);
  if (index >= 0 && i < m_records.size() && done > 0) m_records[i].done = done;
}

bool WorkerTable::AllRangesDone() const {
  const os::LockGuard guard(m_lock);
  for (const auto& worker : m_workers) {
    if (!worker->succeeded() && !IsComplete(*worker)) return false;
  }
  return true;
}

std::optional<std::int64_t> WorkerTable::Remaining(bool count_buffered) const {
  const os::LockGuard guard(m_lock);
  if (!SharedOut()) return std::nullopt;
  std::int64_t sum = 0;
  for (const auto& worker : m_workers) {
    sum += count_buffered ? worker->GetRemainingBytes()
                          : worker->GetRangeLength() - worker->received();
  }
  return sum;
}

std::vector<WorkerTable::RunningThread> WorkerTable::Threads() const {
  const os::LockGuard guard(m_lock);
  std::vector<RunningThread> threads;
  for (std::size_t i = 0; i < m_workers.size(); ++i) {
    if (m_workers[i]->HasThread())
      threads.push_back({m_workers[i]->thread(), static_cast<std::int32_t>(i)});
  }
  return threads;
}

bool WorkerTable::succeeded(std::int32_t index) const {
  return Worker(index)->succeeded();
}

void WorkerTable::CloseThread(std::int32_t index) {
  Worker(index)->CloseThread();
}

void WorkerTable::SignalStop() {
  const os::LockGuard guard(m_lock);
  for (const auto& worker : m_workers) worker->SignalStop();
}

void WorkerTable::Stop() {
  SignalStop();
  for (std::int32_t index = 0; CDownloadHttp* worker = Worker(index); ++index) worker->Stop();
}

}  // namespace Tarnlo
