#include "engine/download_manager.h"

#include <cstdlib>
#include <ctime>
#include <exception>
#include <utility>

#include "support/os/clock.h"
#include "support/simple_log.h"
#include "transfer/url.h"

namespace Tarnlo {
namespace {

constexpr StepLog kLogDownload("CDownloadManager Download");
constexpr std::size_t kJobStackBytes = 0xA00000;
constexpr std::uint32_t kStopLimitMs = 5000;

}  // namespace

CDownloadManager::CDownloadManager()
    : m_stop_event(std::make_shared<os::Event>()),
      m_start_tick(os::TickMs()),
      m_last_progress_tick(os::TickMs()) {
  // Nothing here draws random numbers; a host that does on this thread finds them seeded.
  std::srand(static_cast<unsigned>(std::time(nullptr)));
}

CDownloadManager::~CDownloadManager() {
  Stop();
}

std::shared_ptr<os::Event> CDownloadManager::StopEvent() const {
  const os::LockGuard guard(m_stop_lock);
  return m_stop_event;
}

bool CDownloadManager::HasStopEvent() const {
  const std::shared_ptr<os::Event> event = StopEvent();
  return event && event->valid();
}

bool CDownloadManager::RenewStopEvent() {
  auto event = std::make_shared<os::Event>();
  if (!event->valid()) return false;
  const os::LockGuard guard(m_stop_lock);
  m_stop_event = std::move(event);
  return true;
}

void CDownloadManager::CloseStopEvent() {
  const os::LockGuard guard(m_stop_lock);
  m_stop_event.reset();
}

// The run that ends closes its own event, not one that a later run has been given meanwhile.
void CDownloadManager::CloseStopEventOf(const std::shared_ptr<os::Event>& run) {
  const os::LockGuard guard(m_stop_lock);
  if (m_stop_event == run) m_stop_event.reset();
}

// A run that still lives keeps its own.
void CDownloadManager::CloseUnusedStopEvent() {
  const os::LockGuard guard(m_stop_lock);
  if (m_stop_event != m_run_stop || !m_job_thread.valid()) m_stop_event.reset();
}

bool CDownloadManager::Refuse(int error) {
  kLogDownload.Error(error);
  CloseStopEvent();
  return false;
}

// A run that has told its end may still be on its last lines.
bool CDownloadManager::ReleaseEarlierRun() {
  if (!m_job_thread.WaitForEnd(kStopLimitMs)) return false;
  m_job_thread.Close();
  m_table.Free();
  m_active_ranges = 0;
  m_probe.reset();
  return true;
}

// Whatever is thrown, the job does not count as running afterwards.
bool CDownloadManager::Download(const wchar_t* url, const wchar_t* folder, const wchar_t* file_name,
                                std::int32_t task_id, bool restart) {
  try {
    return StartRun(url, folder, file_name, task_id, restart);
  } catch (...) {
    CloseUnusedStopEvent();
    throw;
  }
}

bool CDownloadManager::StartRun(const wchar_t* url, const wchar_t* folder, const wchar_t* file_name,
                                std::int32_t task_id, bool restart) {
  kLogDownload(1);
  if (!HasStopEvent()) {
    kLogDownload.Error(1);
    return false;
  }
  if (folder == nullptr || *folder == L'\0') return Refuse(2);
  if (task_id <= 0) return Refuse(3);
  if (url == nullptr || *url == L'\0') {
    kLogDownload.Error(4);
    return false;
  }
  const std::optional<std::wstring> normalised = NormaliseUrl(url);
  if (!ReleaseEarlierRun()) {
    kLogDownload.Error(7);
    CloseUnusedStopEvent();
    return false;
  }
  m_run_stop = StopEvent();
  if (!m_run_stop) {  // it was the earlier run's, and went with it
    kLogDownload.Error(1);
    return false;
  }
  m_folder = folder;
  m_file_name = file_name == nullptr ? L"" : file_name;
  m_restart = restart;
  if (!normalised) return Refuse(5);
  m_url = *normalised;
  m_task_id = task_id;
  m_stopping = false;
  m_reported_bytes = 0;
  if (!CreateProbe()) {
    kLogDownload.Error(6);
    CloseStopEvent();
    std::int32_t result = kResultNoRemoteInfo;
    HandleDownloadFinished(result);
    return false;
  }
  kLogDownload(2);
  m_job_thread = os::Thread::Start(kJobStackBytes, &ThreadProc_DownloadMTR, this);
  if (!m_job_thread.valid()) return Refuse(7);
  kLogDownload(3);
  return true;
}

bool CDownloadManager::CreateProbe() {
  try {
    m_probe = std::make_unique<CDownloadHttp>();
  } catch (const std::exception&) {
    return false;
  }
  WorkerSetup setup;
  setup.task_id = m_task_id;
  setup.owner = this;
  setup.observer = m_observer;
  m_probe->Configure(setup);
  m_probe->SetUrl(m_url);
  return true;
}

void CDownloadManager::Stop() {
  m_stopping = true;
  if (const std::shared_ptr<os::Event> event = StopEvent()) event->Set();
  if (m_run_stop) m_run_stop->Set();  // of a run whose event a refused one has closed
  if (m_probe) m_probe->SignalStop();
  if (!m_job_thread.WaitForEnd(kStopLimitMs)) m_job_thread.Terminate();
  m_job_thread.Close();
  m_table.Free();
  m_active_ranges = 0;
  m_probe.reset();
  CloseStopEvent();
}

CDownloadManager::ProgressFigures CDownloadManager::Progress() const {
  ProgressFigures figures;
  figures.start_tick = m_start_tick;
  figures.total = content_length();
  if (figures.total > 0) {
    figures.downloaded = GetDownloadedBytes();
    figures.run_bytes = m_run_bytes;
  }
  return figures;
}

void CDownloadManager::StartTicking() {
  m_run_bytes = 0;  // first: who sees the new tick sees none of the bytes before it
  m_start_tick = os::TickMs();
}

}  // namespace Tarnlo
