#include "manager/task_manager.h"

#include <algorithm>
#include <cwchar>
#include <optional>
#include <utility>

#include "manager/copy_cut.h"
#include "support/os/clock.h"
#include "support/os/system_folders.h"
#include "support/text.h"
#include "transfer/current_job.h"

namespace Tarnlo {
namespace {

constexpr std::size_t kTempFolderCapacity = 1040;
constexpr std::uint32_t kLongestTellingMs = 5000;  // how long a callback of an end is waited for
constexpr std::uint32_t kTellingLookMs = 10;

const wchar_t* OrEmpty(const wchar_t* text) {
  return text == nullptr ? L"" : text;
}

bool Fits(const wchar_t* text, std::size_t capacity) {
  return std::wcslen(OrEmpty(text)) < capacity;
}

// Whether the calling thread is one of the job's own, which cannot wait for the job's end.
bool IsOwnThreadOf(const CDownloadManager& job) {
  return CurrentJob() == &job;
}

}  // namespace

CTaskManager::~CTaskManager() {
  std::optional<OperationTurn> turn;
  if (m_gate.Enter()) turn.emplace(m_gate);
  const os::LockGuard guard(m_lock);
  for (const TaskEntry& row : m_rows) SilenceAndStop(*row.job);
  m_rows.clear();
}

void CTaskManager::SilenceAndStop(CDownloadManager& job) {
  job.SetNotifying(false);
  job.Stop();
}

CTaskManager::Rows::iterator CTaskManager::FindRow(std::int32_t id) {
  return std::find_if(m_rows.begin(), m_rows.end(),
                      [id](const TaskEntry& row) { return row.id == id; });
}

std::int32_t CTaskManager::AddTask(const wchar_t* url, const wchar_t* folder,
                                   const wchar_t* file_name, std::int32_t id,
                                   const wchar_t* version, const wchar_t* md5,
                                   std::int32_t restart) {
  if (url == nullptr) return -1;
  if (!Fits(url, kTextCapacity) || !Fits(folder, kTextCapacity) ||
      !Fits(file_name, kNameCapacity)) {
    return -1;
  }
  if (!m_gate.Enter()) return -1;
  const OperationTurn turn(m_gate);
  const os::LockGuard guard(m_lock);
  const auto old = FindRow(id);
  if (old != m_rows.end() && IsOwnThreadOf(*old->job)) return -1;
  RemoveRow(id);

  TaskEntry& row = AppendRow(id, version, md5);
  row.url = url;
  if (folder != nullptr) {
    row.folder = folder;
  } else {
    std::optional<std::wstring> temp = os::TempFolder(kTempFolderCapacity);
    if (!temp) return -1;
    row.folder = std::move(*temp);
  }
  row.file_name = OrEmpty(file_name);
  const bool started = row.job->Download(url, folder, file_name, id, restart != 0);
  m_position = m_count.load();
  return started ? id : -1;
}

CTaskManager::TaskEntry& CTaskManager::AppendRow(std::int32_t id, const wchar_t* version,
                                                 const wchar_t* md5) {
  auto job = std::make_unique<CDownloadManager>();
  job->SetObserver(m_observer);
  job->SetMd5Check(true);
  job->SetExpectedMd5(ToUpper(OrEmpty(md5)));
  job->SetTaskId(id);
  job->SetRequiredVersion(OrEmpty(version));
  TaskEntry& row = m_rows.emplace_back();
  row.job = std::move(job);
  row.id = id;
  m_current = row.job.get();
  ++m_count;
  return row;
}

std::int32_t CTaskManager::RemoveTask(std::int32_t id) {
  if (!m_gate.Enter()) return 0;
  const OperationTurn turn(m_gate);
  const os::LockGuard guard(m_lock);
  const auto row = FindRow(id);
  if (row != m_rows.end() && IsOwnThreadOf(*row->job)) return 0;
  RemoveRow(id);
  return 1;
}

void CTaskManager::RemoveRow(std::int32_t id) {
  m_position = id;  // of an unknown id too
  const auto row = FindRow(id);
  if (row == m_rows.end()) return;
  SilenceAndStop(*row->job);
  m_current = nullptr;
  const auto next = m_rows.erase(row);
  --m_count;
  if (m_rows.empty()) {
    m_position = 0;
  } else if (next != m_rows.end()) {
    m_current = next->job.get();
  } else {
    m_current = m_rows.back().job.get();
    --m_position;
  }
}

std::int32_t CTaskManager::PauseTask(std::int32_t id) {
  if (!m_gate.Enter()) return 0;
  const OperationTurn turn(m_gate);
  const os::LockGuard guard(m_lock);
  const auto row = FindRow(id);
  if (row == m_rows.end()) return 1;
  if (IsOwnThreadOf(*row->job)) return 0;
  SilenceAndStop(*row->job);
  return 1;
}

// Waits for the callback of an end without the gate, since the callback may itself ask for
// something.
std::int32_t CTaskManager::ContinueTask(std::int32_t id) {
  const std::uint32_t begin = os::TickMs();
  std::optional<std::int32_t> answer = TryContinue(id);
  while (!answer && os::TickMs() - begin < kLongestTellingMs && !CallerIsBeingStopped()) {
    os::SleepMs(kTellingLookMs);
    answer = TryContinue(id);
  }
  return answer.value_or(0);
}

std::optional<std::int32_t> CTaskManager::TryContinue(std::int32_t id) {
  if (!m_gate.Enter()) return 0;
  const OperationTurn turn(m_gate);
  const os::LockGuard guard(m_lock);
  const auto row = FindRow(id);
  if (row == m_rows.end()) return 0;
  CDownloadManager& job = *row->job;
  job.SetNotifying(true);
  // Its own threads cannot wait for the run that they work for.
  if (job.HasStopEvent() || IsOwnThreadOf(job)) return 1;
  if (job.IsEnding()) return std::nullopt;
  if (!job.RenewStopEvent()) return 0;
  return job.Download(row->url.c_str(), row->folder.c_str(), row->file_name.c_str(), id, false) ? 1
                                                                                                : 0;
}

std::int32_t CTaskManager::CancelAllTasks() {
  if (m_position == 0) return 0;
  if (!m_gate.Enter()) return 0;
  const OperationTurn turn(m_gate);
  const os::LockGuard guard(m_lock);
  const bool own = std::any_of(m_rows.begin(), m_rows.end(),
                               [](const TaskEntry& row) { return IsOwnThreadOf(*row.job); });
  if (own) return 0;
  m_current = nullptr;
  while (!m_rows.empty()) {
    SilenceAndStop(*m_rows.front().job);
    m_rows.pop_front();
    --m_count;
  }
  return 1;
}

template <typename Use>
bool CTaskManager::ReadRow(std::optional<std::int32_t> id, Use use) const {
  if (!m_gate.idle() || !m_lock.TryAcquireShared()) return false;
  const os::AdoptSharedGuard guard(m_lock);
  const CDownloadManager* const current = m_current;
  const auto row = std::find_if(m_rows.begin(), m_rows.end(), [&](const TaskEntry& candidate) {
    return id ? candidate.id == *id : candidate.job.get() == current;
  });
  if (row == m_rows.end()) return false;
  use(*row);
  return true;
}

void CTaskManager::Read(const TaskEntry& row, TaskReading& reading) {
  reading.id = row.id;
  reading.figures = row.job->Progress();
  reading.elapsed_ms = os::TickMs() - reading.figures.start_tick;
  reading.url = row.url;
  reading.folder = row.folder;
  reading.file_name = row.file_name;
}

std::int32_t CTaskManager::GetTaskTexts(std::int32_t id, std::span<wchar_t> url,
                                        std::span<wchar_t> folder,
                                        std::span<wchar_t> file_name) const {
  ReadRow(id, [&](const TaskEntry& row) {
    CopyCut(row.url, url);
    CopyCut(row.folder, folder);
    CopyCut(row.file_name, file_name);
  });
  return 0;
}

bool CTaskManager::ReadTask(std::int32_t id, TaskReading& reading) const {
  return ReadRow(id, [&reading](const TaskEntry& row) { Read(row, reading); });
}

bool CTaskManager::ReadCurrentTask(TaskReading& reading) const {
  return ReadRow(std::nullopt, [&reading](const TaskEntry& row) { Read(row, reading); });
}

}  // namespace Tarnlo
