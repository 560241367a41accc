// One download job: one file, one job thread, up to six workers.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "engine/pending_flush.h"
#include "engine/worker_table.h"
#include "support/os/event.h"
#include "support/os/file.h"
#include "support/os/lock.h"
#include "support/os/thread.h"
#include "support/result.h"
#include "support/task_event.h"
#include "transfer/download_http.h"
#include "transfer/worker_owner.h"

namespace Tarnlo {

// Fetches one URL into one folder: learns what the server has, resumes or lays out the temporary
// file, lets workers fill it, finishes it, and tells its observer. It coordinates; the decisions
// are in range_planner, resume_trailer, target_path, md5_list and file_version, the ranges in
// WorkerTable.
//
// Threads: one caller at a time configures, downloads and stops (the task manager's lock sees to
// it); the job thread (`ThreadProc_DownloadMTR`) does the work; workers report through
// `OnRangeProgress`; `Progress` may be read by any thread while no call of the caller is under way,
// the flags at any time.
// Lifetime: the destructor stops. The stop event is made anew for each run and closed at its end.
// The end of a run that is not stopped is told exactly once, after the file is closed and renamed
// and after every other report. A stopped job leaves the temporary file with its trailer.
class CDownloadManager final : public IWorkerOwner {
 public:
  CDownloadManager();
  CDownloadManager(const CDownloadManager&) = delete;
  CDownloadManager& operator=(const CDownloadManager&) = delete;
  ~CDownloadManager() override;

  // Before `Download`. The observer outlives the job.
  void SetObserver(IObserver* observer) { m_observer = observer; }
  void SetTaskId(std::int32_t task_id) { m_task_id = task_id; }
  void SetExpectedMd5(std::wstring list) { m_expected_md5 = std::move(list); }
  void SetRequiredVersion(std::wstring version) { m_required_version = std::move(version); }
  void SetMd5Check(bool on) { m_check_md5 = on; }

  // Whether the job still tells its observer. Cleared before a stop, the stop is silent.
  void SetNotifying(bool on) { m_notifying = on; }
  [[nodiscard]] bool IsNotifying() const override { return m_notifying; }

  // A job has a stop event from its making, or from `RenewStopEvent`, until the end of its run is
  // told.
  [[nodiscard]] bool HasStopEvent() const;
  bool RenewStopEvent();
  // A run has told its end, or tells it, and its thread still lives.
  [[nodiscard]] bool IsEnding() const { return !HasStopEvent() && m_job_thread.IsRunning(); }
  // True from the moment a stop is signalled until the next run. Threads: any.
  [[nodiscard]] bool IsStopping() const { return m_stopping; }

  // Starts a run. Null texts count as empty. False, with a line in the log, when it is refused.
  // Waits for the last lines of a run that has told its end, 5,000 ms at most.
  bool Download(const wchar_t* url, const wchar_t* folder, const wchar_t* file_name,
                std::int32_t task_id, bool restart);

  // Ends the run and returns when its threads are gone: promptly, and by force after 5,000 ms.
  // Never from one of the job's own threads.
  void Stop();

  struct ProgressFigures {
    std::uint32_t start_tick = 0;  // when this run, or its present attempt, began
    std::int64_t total = -1;       // bytes, -1 when unknown
    std::int64_t downloaded = -1;  // bytes, -1 when unknown
    std::int64_t run_bytes = 0;    // received since the start tick
  };
  [[nodiscard]] ProgressFigures Progress() const;

 private:
  // The job thread and its attempts (job_thread.cpp).
  static std::uint32_t ThreadProc_DownloadMTR(void* job);
  void RunJob();
  std::int32_t RunAttempt(int attempt);
  std::int32_t StartAndWait();
  void StopAndFinish(std::int32_t& result);
  std::int32_t JudgeRanges();
  void DeleteFiles();
  bool BackOff(int attempt);
  void TellFinished(std::int32_t result);
  void EndAfterException();

  // From the server's answer to running workers (start_download.cpp).
  std::int32_t StartMTRDownload();
  void BuildTargetPath();
  std::optional<std::int32_t> ResultOfExistingTarget();
  bool CheckCdnFileSize(std::int64_t file_size);
  std::uint32_t getCdnFileSize(const std::wstring& url);
  bool CompareFileVersion();
  bool CanResume();
  std::int32_t CreateTemporaryFile();
  bool AssignDownloadTask();
  void PlanAfresh();
  bool CreateWorkers();
  bool HasValidRanges();
  void FreeWorkers();

  // While workers run (wait_for_workers.cpp).
  std::int32_t WaitForWorkers();
  bool ReassignRange(std::int32_t index) { return m_table.Reassign(index); }
  [[nodiscard]] std::int64_t GetDownloadedBytes() const;
  static void OnRangeProgressThunk(std::int32_t index, std::int64_t done, std::int64_t delta,
                                   void* job);
  void OnRangeProgress(std::int32_t index, std::int64_t done, std::int64_t delta);
  void SendProgress(std::int64_t run_bytes, std::int64_t total);

  // The end of an attempt (finish_download.cpp) and its trailer (resume_info.cpp).
  bool HandleDownloadFinished(std::int32_t& result);
  std::int32_t TurnIntoTarget();
  bool CutAndRename();
  std::int32_t VerifyTarget();
  bool CheckMd5(const std::wstring& digest, const std::wstring& list, bool pre_check) const;
  bool ReadDownloadInfo();
  bool ReadRecords(os::File& file, std::int64_t size, std::uint32_t count);
  bool WriteDownloadInfo();
  void UpdateDownloadInfo();
  void SaveStepByStep();
  void FlushAtEnd();
  bool AwaitFlush();
  [[nodiscard]] bool HasTrailer() const;
  bool SaveTrailer(os::File file, const std::vector<RangeRecord>& records) const;

  [[nodiscard]] std::wstring GetTempFilePath() const;  // empty without a target path
  [[nodiscard]] std::int64_t content_length() const {
    return m_probe ? m_probe->content_length() : -1;
  }

  [[nodiscard]] std::uint32_t range_count() const {
    return static_cast<std::uint32_t>(m_connection_count.load());
  }

  std::shared_ptr<os::Event> StopEvent() const;
  void CloseStopEvent();
  void CloseStopEventOf(const std::shared_ptr<os::Event>& run);
  void CloseUnusedStopEvent();
  bool ReleaseEarlierRun();
  bool StartRun(const wchar_t* url, const wchar_t* folder, const wchar_t* file_name,
                std::int32_t task_id, bool restart);
  bool Refuse(int error);
  bool CreateProbe();
  void StartTicking();

  // Set before a run and constant while it lasts.
  IObserver* m_observer = nullptr;
  std::int32_t m_task_id = -1;
  bool m_check_md5 = false;
  std::wstring m_expected_md5;
  std::wstring m_required_version;
  std::wstring m_folder;
  std::wstring m_file_name;
  std::wstring m_url;
  std::shared_ptr<os::Event> m_run_stop;  // this run's stop event; never null while a run lasts
  std::unique_ptr<CDownloadHttp> m_probe;
  os::Thread m_job_thread;

  // The job thread's own.
  std::int32_t m_result = 0;  // what there is to tell at the end
  bool m_restart = false;
  std::wstring m_target_path;
  std::shared_ptr<PendingFlush> m_flush;       // the last one begun
  std::vector<RangeRecord> m_records_to_save;  // when that flush is done
  std::uint32_t m_save_tick = 0;
  std::uint32_t m_active_ranges = 0;  // as the trailer stores it; 0 when the table is cleared

  // Shared, each with its own locking.
  WorkerTable m_table;
  mutable os::Lock m_stop_lock;
  std::shared_ptr<os::Event> m_stop_event GUARDED_BY(m_stop_lock);
  std::atomic<bool> m_stopping{false};
  std::atomic<bool> m_notifying{true};
  std::atomic<bool> m_finished{false};
  std::atomic<std::int32_t> m_connection_count{6};
  std::atomic<std::int64_t> m_run_bytes{0};
  std::atomic<std::uint32_t> m_start_tick;
  std::atomic<std::uint32_t> m_last_progress_tick;
  std::atomic<bool> m_sending_progress{false};    // one thread at a time sends overall progress
  std::atomic<std::int64_t> m_reported_bytes{0};  // the highest figure told in this run
};

}  // namespace Tarnlo
