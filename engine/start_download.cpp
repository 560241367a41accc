// From the server's answer to running workers: is there anything to download, from where to go on,
// and who fetches what.
#include "engine/download_manager.h"
#include "engine/file_md5.h"
#include "engine/file_version.h"
#include "engine/patient_file.h"
#include "engine/range_planner.h"
#include "engine/resume_trailer.h"
#include "engine/size_probe.h"
#include "engine/target_path.h"
#include "support/os/file.h"
#include "support/simple_log.h"
#include "support/sized_file.h"
#include "transfer/url_file_name.h"

namespace Tarnlo {
namespace {

constexpr StepLog kLog("CDownloadManager StartMTRDownload");
constexpr StepLog kAssignLog("CDownloadManager::AssignDownloadTask");
constexpr std::uint32_t kSettleMs = 100;

}  // namespace

std::int32_t CDownloadManager::StartMTRDownload() {
  m_finished = false;
  m_sending_progress = false;
  StartTicking();
  kLog(1);
  if (m_run_stop->IsSet() || !m_probe->GetRemoteSiteInfo()) {
    kLog(2);
    return m_run_stop->IsSet() ? kResultStopped : kResultNoRemoteInfo;
  }
  BuildTargetPath();
  if (m_run_stop->Wait(kSettleMs) || !AwaitFlush()) {
    kLog(3);
    return kResultStopped;
  }
  bool resuming = false;
  if (m_restart) {
    kLog(4);
    os::RemoveFile(m_target_path);
    os::RemoveFile(GetTempFilePath());
    m_restart = false;
  } else {
    kLog(5);
    if (const std::optional<std::int32_t> result = ResultOfExistingTarget()) return *result;
    resuming = CanResume();
    if (!resuming && m_run_stop->IsSet()) return kResultStopped;
  }
  if (!resuming) {
    if (const std::int32_t result = CreateTemporaryFile(); result != kResultSuccess) return result;
  }
  os::SetHidden(GetTempFilePath());
  if (!AssignDownloadTask()) {
    kLog(21);
    return kResultAssignmentFailed;
  }
  StartTicking();
  kLog(22);
  return kResultSuccess;
}

// A name that can be no plain file in the folder gives no path: nothing is found there, and nothing
// can be created.
void CDownloadManager::BuildTargetPath() {
  UrlRecord own;
  SetUrl(own, m_url);
  m_target_path = Tarnlo::BuildTargetPath({.folder = m_folder,
                                           .given = m_file_name,
                                           .in_url = GetUrlFileName(own.m_strObject).name,
                                           .remote = m_probe->RemoteFileName()})
                      .value_or(std::wstring());
}

// 1 when the file that is there will do, 13 when a stop came first, nothing when it must be
// fetched.
std::optional<std::int32_t> CDownloadManager::ResultOfExistingTarget() {
  os::File file = OpenPatiently(m_target_path, os::FileAccess::kRead, m_run_stop.get());
  if (!file.valid()) {
    if (m_run_stop->IsSet()) return kResultStopped;
    return std::nullopt;
  }
  kLog(6);
  bool complete = false;
  if (m_check_md5 && !m_expected_md5.empty() && m_expected_md5.front() != L',') {
    kLog(7);
    const std::optional<std::wstring> md5 = ComputeFileMd5(m_target_path, m_run_stop.get());
    if (!md5) return kResultStopped;
    if (!md5->empty()) {
      kLog(8);
      complete = CheckMd5(*md5, m_expected_md5, true);
    }
  } else if (!m_required_version.empty()) {
    kLog(9);
    complete = CompareFileVersion();
  } else {
    complete = CheckCdnFileSize(file.Size().value_or(0));
  }
  if (!complete) {
    if (m_run_stop->IsSet()) return kResultStopped;
    return std::nullopt;
  }
  kLog(11);
  return kResultAlreadyComplete;
}

// Files of 4 GiB and more compare by their low 32 bits: the answer to a HEAD has no more.
bool CDownloadManager::CheckCdnFileSize(std::int64_t file_size) {
  const auto local = static_cast<std::uint32_t>(file_size);
  const std::uint32_t remote = getCdnFileSize(m_url);
  LogInfo("CheckCdnFileSize %ld, =? %ld", Low32(remote), Low32(local));
  if (remote == 0 || remote != local) return false;
  kLog(10);
  return true;
}

std::uint32_t CDownloadManager::getCdnFileSize(const std::wstring& url) {
  return ProbeCdnFileSize(url, m_run_stop.get());
}

bool CDownloadManager::CompareFileVersion() {
  return Tarnlo::CompareFileVersion(m_target_path, m_required_version);
}

bool CDownloadManager::CanResume() {
  if (!m_probe->IsRangeSupported()) return false;
  kLog(12);
  const os::File file = OpenPatiently(GetTempFilePath(), os::FileAccess::kRead, m_run_stop.get());
  if (!file.valid()) return false;
  kLog(13);
  const std::optional<std::int64_t> size = file.Size();
  if (!size) return false;
  kLog(14);
  if (content_length() <= 0) return false;
  if (size != TemporaryFileSize(content_length(), range_count())) return false;
  kLog(15);
  if (!ReadDownloadInfo()) return false;
  kLog(16);
  return true;
}

std::int32_t CDownloadManager::CreateTemporaryFile() {
  kLog(17);
  std::optional<std::int64_t> size = TemporaryFileSize(content_length(), range_count());
  if (content_length() <= 0 || !m_probe->IsRangeSupported()) {
    kLog(18);
    size = 0;
  }
  const SizedFileResult created =
      size ? CreateSizedFile(GetTempFilePath(), *size) : SizedFileResult::kNotExtended;
  if (created == SizedFileResult::kDone) return kResultSuccess;
  const bool no_space = created == SizedFileResult::kNotExtended;
  kLog(no_space ? 19 : 20);
  return no_space ? kResultNoSpace : kResultFileFailed;
}

bool CDownloadManager::AssignDownloadTask() {
  kAssignLog(1);
  const bool ranges = m_probe->IsRangeSupported();
  if (!ranges) {
    kAssignLog(2);
    FreeWorkers();
  }
  if (content_length() <= 0 || !ranges) {
    kAssignLog(3);
    if (m_connection_count != 1) {
      kAssignLog(4);
      FreeWorkers();
      m_connection_count = 1;
    }
  }
  if (!HasValidRanges() || !m_table.exists()) {
    kAssignLog(5);
    if (!CreateWorkers()) {
      kAssignLog(6);
      return false;
    }
  }
  if (!HasValidRanges()) PlanAfresh();
  m_active_ranges = range_count();  // what runs below is kept, should one not start
  for (std::int32_t index = 0; index < m_connection_count; ++index) {
    kAssignLog(11);
    if (!m_table.Start(index)) {
      kAssignLog(12);
      return false;
    }
  }
  return true;
}

void CDownloadManager::PlanAfresh() {
  kAssignLog(7);
  const bool known = content_length() > 0;
  if (known) kAssignLog(8);
  const std::vector<RangeRecord> plan = PlanRanges(content_length(), range_count());
  for (std::size_t i = 0; i < plan.size(); ++i) {
    kAssignLog(9);
    if (i == 0 && known) kAssignLog(10);
  }
  m_table.SetRecords(plan);
}

bool CDownloadManager::HasValidRanges() {
  if (m_table.exists() && ValidRangeCount(m_active_ranges) && m_table.HasLengths()) return true;
  m_table.ClearRecords();
  m_active_ranges = 0;
  return false;
}

// The active range count stays: the trailer's reader sets it before it makes the workers.
bool CDownloadManager::CreateWorkers() {
  return m_table.Create(m_connection_count, [this](std::int32_t index) {
    auto worker = std::make_unique<CDownloadHttp>();
    WorkerSetup setup;
    setup.index = index;
    setup.task_id = m_task_id;
    setup.owner = this;
    setup.observer = m_observer;
    setup.progress = &OnRangeProgressThunk;
    setup.progress_context = this;
    setup.file_path = GetTempFilePath();
    worker->Configure(setup);
    worker->SetCredentials(m_probe->user().c_str(), m_probe->password().c_str());
    // Where an absolute redirect has led the probe, the workers need not be led again.
    const std::wstring& effective = m_probe->effective_url();
    worker->SetUrl(effective.empty() ? m_url : effective);
    return worker;
  });
}

void CDownloadManager::FreeWorkers() {
  m_table.Free();
  m_active_ranges = 0;
}

}  // namespace Tarnlo
