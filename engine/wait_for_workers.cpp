// While workers run: waiting for the first to end, giving it new work, and reporting progress.
#include <algorithm>
#include <vector>

#include "engine/download_manager.h"
#include "engine/speed.h"
#include "support/os/clock.h"

namespace Tarnlo {
namespace {

constexpr std::uint32_t kProgressIntervalMs = 100;
constexpr std::uint32_t kLookMs = 1000;

// Whatever happens to the report, the next one may be sent.
class ClearAtExit {
 public:
  explicit ClearAtExit(std::atomic<bool>& flag) : m_flag(flag) {}
  ClearAtExit(const ClearAtExit&) = delete;
  ClearAtExit& operator=(const ClearAtExit&) = delete;
  ~ClearAtExit() { m_flag = false; }

 private:
  std::atomic<bool>& m_flag;
};

}  // namespace

std::int32_t CDownloadManager::WaitForWorkers() {
  std::int32_t result = kResultWaitFailed;
  m_save_tick = os::TickMs();
  for (;;) {
    const std::vector<WorkerTable::RunningThread> running = m_table.Threads();
    if (running.empty()) {
      const std::int64_t downloaded = GetDownloadedBytes();
      if (downloaded > content_length()) return kResultTooManyBytes;
      return downloaded < content_length() ? kResultTooFewBytes : kResultSuccess;
    }
    std::vector<os::Waitable> handles;
    handles.reserve(running.size() + 1);
    for (const WorkerTable::RunningThread& entry : running) handles.push_back(entry.thread);
    handles.push_back(m_run_stop->waitable());
    const os::WaitAnswer answer = os::WaitForAny(handles, kLookMs);
    if (answer.failed) break;
    if (!answer.signalled) {
      UpdateDownloadInfo();
      continue;
    }
    if (*answer.signalled == running.size()) {
      result = kResultStopped;
      break;
    }
    const std::int32_t index = running[*answer.signalled].index;
    if (!m_table.succeeded(index) || !ReassignRange(index)) m_table.CloseThread(index);
    UpdateDownloadInfo();
  }
  m_table.Stop();
  // After a wait that failed the probe worker is asked again in the next attempt.
  if (result == kResultStopped) m_probe->Stop();
  return result;
}

std::int64_t CDownloadManager::GetDownloadedBytes() const {
  const std::int64_t total = content_length();
  if (total < 1) return -1;
  if (m_finished) return total;
  const std::optional<std::int64_t> remaining = m_table.Remaining(true);
  return remaining ? total - *remaining : -1;
}

void CDownloadManager::OnRangeProgressThunk(std::int32_t index, std::int64_t done,
                                            std::int64_t delta, void* job) {
  static_cast<CDownloadManager*>(job)->OnRangeProgress(index, done, delta);
}

void CDownloadManager::OnRangeProgress(std::int32_t index, std::int64_t done, std::int64_t delta) {
  if (index < 0 || index >= m_connection_count || done < 0) return;
  m_table.StoreDone(index, done);
  const std::int64_t run_bytes = m_run_bytes.fetch_add(delta) + delta;
  if (!m_notifying) return;
  SendEvent(m_observer, index, m_task_id, kEventRangeProgress, done);
  if (const std::int64_t total = content_length(); total > 0) SendProgress(run_bytes, total);
}

// One exchange decides which thread sends, and it alone sends until the host has taken it, so that
// reports are 100 ms apart and arrive in the order of their figures.
void CDownloadManager::SendProgress(std::int64_t run_bytes, std::int64_t total) {
  if (os::TickMs() - m_last_progress_tick <= kProgressIntervalMs) return;
  bool sending = false;
  if (!m_sending_progress.compare_exchange_strong(sending, true)) return;
  const ClearAtExit clear(m_sending_progress);
  const std::uint32_t now = os::TickMs();
  const std::optional<std::int64_t> remaining = m_table.Remaining(false);
  if (remaining && now - m_last_progress_tick > kProgressIntervalMs) {
    // Ranges change hands, and one or all may begin again: what was told once is not taken back.
    const std::int64_t told = std::max(m_reported_bytes.load(), total - *remaining);
    m_reported_bytes = std::min(told, total);
    // The tick first: when the count began anew with it, what came before is not of this time.
    const std::uint32_t elapsed = now - m_start_tick;
    const std::int64_t counted = std::min(run_bytes, m_run_bytes.load());
    SendProgressEvent(
        m_observer, m_task_id,
        TaskProgress{m_task_id, total, m_reported_bytes, BytesPerSecond(counted, elapsed)});
    m_last_progress_tick = os::TickMs();
  }
}

}  // namespace Tarnlo
