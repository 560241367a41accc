// The job thread: at most two attempts, and the one report of the end.
#include <new>

#include "engine/download_manager.h"
#include "support/os/clock.h"
#include "support/os/file.h"
#include "support/report_store.h"
#include "support/simple_log.h"
#include "transfer/current_job.h"

namespace Tarnlo {
namespace {

constexpr StepLog kLog("ThreadProc_DownloadMTR");
constexpr std::int32_t kDefaultConnections = 6;
constexpr int kAttempts = 2;

}  // namespace

std::uint32_t CDownloadManager::ThreadProc_DownloadMTR(void* job) {
  auto& self = *static_cast<CDownloadManager*>(job);
  const std::shared_ptr<os::Event> run = self.m_run_stop;
  const CurrentJobScope scope(&self, *run);
  kLog(1);
  try {
    self.RunJob();
  } catch (...) {
    self.EndAfterException();
  }
  self.CloseStopEventOf(run);
  kLog(2);
  return 1;
}

// Nothing was told yet: a run returns as soon as it has told its end.
void CDownloadManager::EndAfterException() {
  try {
    m_table.Stop();
    TellFinished(m_result);
  } catch (...) {
    // No memory for the report itself; the host's process goes on.
  }
}

void CDownloadManager::RunJob() {
  m_result = kResultWaitFailed;  // until there is another
  kLog(3);
  if (m_notifying) {
    kLog(4);
    SendEvent(m_observer, kWholeJob, m_task_id, kEventStarted, 0);
    if (m_observer != nullptr) kLog(5);
  }
  m_connection_count = kDefaultConnections;
  for (int attempt = 0; attempt < kAttempts; ++attempt) {
    const std::int32_t result = RunAttempt(attempt);
    if (result == kResultAlreadyComplete) {
      m_finished = true;
      TellFinished(kResultSuccess);
      return;
    }
    if (result == kResultMd5Mismatch || result == kResultTooManyBytes) DeleteFiles();
    FreeWorkers();
    kLog(19);
    if (attempt + 1 == kAttempts || result == kResultSuccess) {
      kLog(20);
      TellFinished(result);
      return;
    }
    if (result == kResultMd5Mismatch) kLog(21);
    if (!BackOff(attempt)) return;
  }
}

std::int32_t CDownloadManager::RunAttempt(int attempt) {
  CReportStore::Shared().SetPropertyInt(L"retrytips", attempt);
  kLog(6);
  std::int32_t result = kResultWaitFailed;
  try {
    result = StartAndWait();
  } catch (...) {
    // No memory, as for the list of threads to wait for, or something that a host let out.
  }
  if (result != kResultAlreadyComplete) StopAndFinish(result);
  return result;
}

std::int32_t CDownloadManager::StartAndWait() {
  std::int32_t result = StartMTRDownload();
  kLog(7);
  if (result == kResultSuccess) {
    kLog(12);
    result = WaitForWorkers();
    return result == kResultSuccess ? JudgeRanges() : result;
  }
  kLog(8);
  kLog(result == kResultAlreadyComplete ? 9 : 10);
  return result;
}

// No worker writes any more when the file is finished or its trailer saved.
void CDownloadManager::StopAndFinish(std::int32_t& result) {
  m_table.Stop();
  try {
    HandleDownloadFinished(result);
  } catch (...) {
    if (result == kResultSuccess) result = kResultFileFailed;
  }
}

std::int32_t CDownloadManager::JudgeRanges() {
  kLog(13);
  if (m_table.AllRangesDone()) {
    kLog(14);
    m_finished = true;
    return kResultSuccess;
  }
  kLog(15);
  return kResultRangesIncomplete;
}

void CDownloadManager::DeleteFiles() {
  AwaitFlush();
  kLog(17);
  if (m_target_path.empty()) return;
  os::RemoveFile(m_target_path);
  kLog(18);
  os::RemoveFile(GetTempFilePath());
}

// False when a stop came first.
bool CDownloadManager::BackOff(int attempt) {
  for (int turn = 0; turn < attempt + 3; ++turn) {
    kLog(22);
    if (m_run_stop->Wait(100)) {
      kLog(23);
      return false;
    }
    m_run_stop->Wait(1000);  // a stop cuts it short; the next turn sees it
  }
  if (!m_run_stop->IsSet()) return true;
  kLog(23);
  return false;
}

// The run has no stop event any more when its end is told: a host that hears of it and continues
// the task from another thread starts a new one, which waits for this one's last lines.
void CDownloadManager::TellFinished(std::int32_t result) {
  m_result = result;
  CloseStopEventOf(m_run_stop);
  if (!m_notifying) return;
  try {
    SendEvent(m_observer, kWholeJob, m_task_id, kEventFinished, result);
  } catch (const std::bad_alloc&) {
    throw;
  } catch (...) {
    // The host's own, when it was told.
  }
}

}  // namespace Tarnlo
