// The end of an attempt: the trailer of a file that is not complete, or the target and its proof.
#include "engine/download_manager.h"
#include "engine/file_md5.h"
#include "engine/md5_list.h"
#include "engine/patient_file.h"
#include "support/os/file.h"
#include "support/report_store.h"
#include "support/simple_log.h"
#include "support/text.h"

namespace Tarnlo {
namespace {

constexpr StepLog kLog("CDownloadManager HandleDownloadFinished");
constexpr StepLog kCheckLog("CDownloadManager CheckMd5");
constexpr std::size_t kLongestIgnoredList = 3;  // too short for a digest: no verification

}  // namespace

bool CDownloadManager::HandleDownloadFinished(std::int32_t& result) {
  if (result == kResultSuccess) {
    result = TurnIntoTarget();
    if (result == kResultSuccess) result = VerifyTarget();
  } else {
    kLog(1);
    WriteDownloadInfo();
  }
  kLog(result == kResultSuccess ? 15 : 16);
  return result == kResultSuccess;
}

// Should it fail, the trailer is behind the file's bytes again, so that the next attempt need not
// fetch them.
std::int32_t CDownloadManager::TurnIntoTarget() {
  if (CutAndRename()) return kResultSuccess;
  WriteDownloadInfo();
  return m_run_stop->IsSet() ? kResultStopped : kResultFileFailed;
}

bool CDownloadManager::CutAndRename() {
  kLog(2);
  AwaitFlush();
  const std::wstring temporary = GetTempFilePath();
  os::File file = OpenPatiently(temporary, os::FileAccess::kReadWrite, m_run_stop.get());
  if (!file.valid()) {
    kLog(8);
    return false;
  }
  kLog(3);
  const bool positioned = file.Seek(content_length());
  if (positioned) kLog(4);
  const bool cut = positioned && file.SetEnd();
  file.Close();
  if (!cut) {
    kLog(8);
    return false;
  }
  kLog(5);
  if (!ReplacePatiently(temporary, m_target_path, m_run_stop.get())) {
    kLog(6);
    return false;
  }
  kLog(7);
  kLog(9);
  os::SetNormal(m_target_path);
  return true;
}

// Stopped while hashing, the file stays: the next run's look at the target decides about it.
std::int32_t CDownloadManager::VerifyTarget() {
  if (!m_check_md5 || m_expected_md5.size() <= kLongestIgnoredList) return kResultSuccess;
  kLog(10);
  kLog(11);
  const std::optional<std::wstring> md5 = ComputeFileMd5(m_target_path, m_run_stop.get());
  if (!md5) return kResultStopped;
  CReportStore::Shared().SetProperty(L"downpackagemd5", *md5);
  if (!md5->empty()) {
    kLog(12);
    if (CheckMd5(*md5, m_expected_md5, false)) {
      kLog(13);
      return kResultSuccess;
    }
  }
  kLog(14);
  os::RemoveFile(m_target_path);
  return kResultMd5Mismatch;
}

bool CDownloadManager::CheckMd5(const std::wstring& digest, const std::wstring& list,
                                bool pre_check) const {
  const std::wstring suffix = NumberToWide(m_task_id);
  CReportStore& facts = CReportStore::Shared();
  facts.AddRecord(L"filemd5_" + suffix, digest, true);
  const Md5Verdict verdict = CompareWithMd5List(digest, list, pre_check);
  if (verdict == Md5Verdict::kListRefused) return false;
  if (verdict == Md5Verdict::kNoMatch) {
    kCheckLog(2);
    return false;
  }
  kCheckLog(1);
  facts.AddRecord(L"matchmd5_" + suffix, L"1", false);
  return true;
}

}  // namespace Tarnlo
